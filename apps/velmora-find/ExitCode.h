// What the program ends with. Scripts rely on the numbers; --help lists them from here.
#pragma once

#include "apps/console/Ending.h"

namespace velmora_find {

enum ExitCode {
    exitDone = 0,
    exitNobody = 1,      // nobody answered
    exitUsage = 2,       // wrong arguments
    exitNetwork = 3,     // no such interface, or the system's network failed
    exitFile = 4,        // a file cannot be read or written
    exitTarget = 5,      // the target refused, or what it said cannot be right
    exitWatchEnded = 6,  // the watch ended by itself
    exitFault = 7,       // of the program's own
};

struct ExitMeaning {
    ExitCode code;
    const char* meaning;
};
inline constexpr ExitMeaning exitMeanings[] = {
    {exitDone, "done"},
    {exitNobody, "nobody answered"},
    {exitUsage, "wrong arguments: an option, a label, or a value that is not allowed"},
    {exitNetwork, "the network: no such interface, none that can be used, or a socket failed"},
    {exitFile, "the file cannot be read, the driver not loaded, or the result not written"},
    {exitTarget, "the target refused, or what it told cannot be right"},
    {exitWatchEnded, "the watch ended by itself"},
    {exitFault, "a fault of the program's own"},
};

using velmora_console::Stop;

}  // namespace velmora_find
