// The settings that outlast the target, as a small settings file:
//
//   [velmora-target]
//   name="Kitchen"
//   buffer=20
//   output=1 "evening"
//
// Texts stand in double quotes, so that blanks at their ends stay. Entries of later releases are
// left in the file as they are.
#pragma once

#include <string>
#include <utility>

#include "base/InfFile.h"
#include "target/Items.h"
#include "target/WriteThrough.h"

namespace velmora_target {

class StateFile {
public:
    explicit StateFile(std::string path, WriteThrough writeThrough = flushed)
        : path_(std::move(path)), writeThrough_(std::move(writeThrough)) {}

    // A text that says why not; empty when it was read, or is not there yet. A file that cannot be
    // read wholly is an error: whoever went on would overwrite it at the next commit.
    std::string load(KeptValues& values);
    // The new file takes the old one's place when it is whole and on the medium. As load; what
    // could not be saved is not in the file of a later call either.
    std::string save(const KeptValues& values);

private:
    std::string write(const std::string& text) const;

    std::string path_;
    WriteThrough writeThrough_;
    ZENNO::InfFile tree_{section};  // what the file says
    static constexpr const char* section = "velmora-target";
};

}  // namespace velmora_target
