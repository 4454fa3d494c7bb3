// The files as the settings program touches them; a test brings its own.
#pragma once

#include <functional>
#include <string>

#include "platform/System.h"
#include "platform/WholeFile.h"

namespace velmora_settings {

struct Files {
    using FileKind = ZENNO::platform::FileKind;
    using WriteOutcome = ZENNO::platform::WriteOutcome;

    static Files ofThisComputer();

    std::function<FileKind(const std::string& path)> kind;
    std::function<bool(const std::string& path, std::string& text)> read;
    // Whole or not at all.
    std::function<WriteOutcome(const std::string& path, const std::string& text)> replace;
    std::function<bool(const std::string& path)> makeFolder;
};

}  // namespace velmora_settings
