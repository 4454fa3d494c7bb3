// The command line of velmora-relay.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/velmora-relay/Flood.h"
#include "apps/velmora-relay/Judge.h"

namespace velmora_relay {

enum ExitCode : int {
    exitDone = 0,
    exitUsage = 2,
    exitNetwork = 3,
};

struct Options {
    std::array<std::string, 2> interfaces;
    Faults faults;
    std::size_t above = 0;           // bytes of payload; what has no more is left alone
    bool thenAll = false;            // but not once one that has more has come
    bool forth = true, back = true;  // from the first interface to the second, and back
    Flood::Settings flood;           // sent out at the first interface
    std::uint32_t seed = 1;
    std::optional<double> seconds;
};

// Options, or the code to exit with: the words have been printed then (help, or what is wrong).
struct CommandLine {
    std::optional<Options> options;
    int exitCode = exitDone;
};
CommandLine readCommandLine(int count, const char* const* values);

}  // namespace velmora_relay
