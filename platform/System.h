// Files, folders and programs. Paths are UTF-8 with backslashes on every system; the POSIX body
// turns them round. A folder ends in a backslash. Both bodies pass tests/platform/SystemTest.cpp.
//
// A path takes at most 259 UTF-16 units, on every system: a longer one names nothing, so nothing of
// that name is found, opened, written or deleted.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace ZENNO::platform {

std::string processPath();  // the running program's file; empty on failure
// The folder of this driver's module, with its backslash; where that module is not loaded
// (programs, tests) and on POSIX that of the program.
std::string driverFolder();
std::string roamingFolder();  // the user's settings root, without a final backslash; may be empty

enum class FileKind { missing, file, folder };  // whatever is no folder is a file
FileKind fileKind(const std::string& path);     // a folder may have its final backslash

bool readWholeFile(const std::string& path, std::vector<std::uint8_t>& data);
bool writeWholeFile(const std::string& path, const std::uint8_t* data, std::uint64_t size);
bool deleteFile(const std::string& path);

// Starts a program as a user's double click would, shown normally, without arguments, and waits
// until it has ended. False, at once, when it could not be started; else `onStarted` is called
// before the wait.
bool runProgramAndWait(const std::string& path, const std::function<void()>& onStarted = {});

// The system's own words for one of its error numbers, without a line end.
std::string errorText(std::int32_t code);

}  // namespace ZENNO::platform
