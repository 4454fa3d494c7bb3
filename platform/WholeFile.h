// A file that is written whole or not at all, and the folder that it lies in. Paths are those of
// platform/System.h. Both bodies pass tests/platform/WholeFileTest.cpp.
#pragma once

#include <cstdint>
#include <string>

namespace ZENNO::platform {

enum class WriteOutcome {
    done,
    noFolder,  // the folder is not there, or the path names nothing
    readOnly,  // the file is marked so
    inUse,     // another program holds it
    noRoom,    // the disk, or the user's share of it, is full
    refused,   // no right to write there, or a failure of another kind
};

// Writes into a new file beside `path`, brings it to the medium and then puts it in the place of
// `path`, with the rights and marks that the file there has. In every case but `done` the file is
// as it was, and nothing is left beside it.
WriteOutcome replaceWholeFile(const std::string& path, const std::uint8_t* data,
                              std::uint64_t size);

// The folder with all above it; true too where it is there already.
bool makeFolder(const std::string& path);

}  // namespace ZENNO::platform
