// What the program ends with. Scripts rely on the numbers; --help lists them from here.
#pragma once

#include "apps/console/Ending.h"

namespace velmora_log {

enum ExitCode {
    exitDone = 0,
    exitNothing = 1,  // no line came, or none within the bounds of time
    exitUsage = 2,    // wrong arguments
    exitNetwork = 3,  // the port cannot be had, or a socket failed
    exitFile = 4,     // a file cannot be read or written
    exitFault = 7,    // of the program's own
};

struct ExitMeaning {
    ExitCode code;
    const char* meaning;
};
inline constexpr ExitMeaning exitMeanings[] = {
    {exitDone, "done"},
    {exitNothing,
     "nothing was heard, the file has no line, or none lies within --since and --until"},
    {exitUsage, "wrong arguments"},
    {exitNetwork, "the port cannot be had, or a socket failed"},
    {exitFile, "a file cannot be read, or something heard or drawn not be written"},
    {exitFault, "a fault of the program's own"},
};

using velmora_console::Stop;

}  // namespace velmora_log
