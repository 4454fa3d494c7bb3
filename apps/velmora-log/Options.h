// What the command line says.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "apps/log/Filter.h"
#include "apps/log/LogPort.h"
#include "apps/log/Moment.h"

namespace velmora_log {

enum class Colour { automatic, always, never };

struct Options {
    Filter filter;
    Colour colour = Colour::automatic;
    bool json = false, showsTrace = false, follows = false, quiet = false;
    std::string readPath, writePath, plotPath;
    std::optional<double> seconds;       // of listening
    std::optional<std::uint64_t> lines;  // that are shown
    std::optional<double> figuresEvery;  // s
    std::uint16_t port = logPort;
};

// What the program stands on, and what a test replaces.
struct Context {
    std::ostream& out;          // results: what a script reads
    std::ostream& talk;         // everything else
    bool takesColours = false;  // `out` is a person's screen that knows colours
    bool noColour = false;      // NO_COLOR is set
    Zone zone = systemZone;
    // Called once it listens: from then on an interrupt is asked for instead of ending it at once.
    std::function<void()> onListen = [] {};
    std::function<bool()> interrupted = [] { return false; };
    std::function<bool()> takeAsked = [] { return false; };  // somebody wants the figures now
    std::string askingKey = {};
    std::int64_t patienceMicros = 5'000'000;  // with silence, before something is said about it
};

// The whole program but for what main() makes: reads the arguments (without the program's name),
// runs and gives the exit code.
int run(const std::vector<std::string>& arguments, Context& context);

}  // namespace velmora_log
