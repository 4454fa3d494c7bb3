// What the program ends with. Scripts rely on the numbers; --help lists them from here.
#pragma once

#include <string>

namespace velmora_log {

enum ExitCode {
    exitDone = 0,
    exitNothing = 1,  // nothing was heard
    exitUsage = 2,    // wrong arguments
    exitNetwork = 3,  // the port is taken, or a socket failed
    exitFile = 4,     // a file cannot be read or written
    exitFault = 7,    // of the program's own
};

struct ExitMeaning {
    ExitCode code;
    const char* meaning;
};
inline constexpr ExitMeaning exitMeanings[] = {
    {exitDone, "done"},
    {exitNothing, "nothing was heard, or the file has no line"},
    {exitUsage, "wrong arguments"},
    {exitNetwork, "the port is taken, or a socket failed"},
    {exitFile, "a file cannot be read, or something heard or drawn not be written"},
    {exitFault, "a fault of the program's own"},
};

// Thrown where the program cannot go on; caught in one place, which says the sentence.
struct Stop {
    ExitCode code;
    std::string sentence;
};

}  // namespace velmora_log
