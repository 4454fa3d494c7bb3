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

#include "base/InfFile.h"
#include "target/Items.h"

namespace velmora_target {

class StateFile {
public:
    explicit StateFile(std::string path) : path_(std::move(path)) {}

    // A text that says why not; empty when it was read, or is not there yet. A file that cannot be
    // read wholly is an error: whoever went on would overwrite it at the next commit.
    std::string load(KeptValues& values);
    // The new file takes the old one's place when it is whole. As load.
    std::string save(const KeptValues& values);

private:
    std::string path_;
    ZENNO::InfFile tree_{section};
    static constexpr const char* section = "velmora-target";
};

}  // namespace velmora_target
