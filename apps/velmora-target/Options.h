// The command line of velmora-target.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "target/PcmDevice.h"
#include "target/Settings.h"

namespace velmora_target {

enum ExitCode : int {
    exitDone = 0,
    exitUsage = 2,
    exitNetwork = 3,
    exitOutput = 4,
    exitNoStream = 5,
    exitSilence = 6,
};

struct Options {
    TargetSettings target;
    std::vector<std::string> interfaces;  // empty: all
    std::string state, inbox;             // a file, a folder; empty: none
    std::optional<double> seconds;
    PcmTimes alsa;
    bool once = false, json = false, quiet = false, hidesFigures = false;
};

// Options, or the code to exit with: the words have been printed then (help, or what is wrong).
struct CommandLine {
    std::optional<Options> options;
    int exitCode = exitDone;
};
CommandLine readCommandLine(int count, char** values);

}  // namespace velmora_target
