#include "platform/Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace ZENNO::platform {

bool errorIsTerminal() noexcept {
    return isatty(STDERR_FILENO) == 1;
}

bool outputTakesColours() noexcept {
    const char* const kind = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

}  // namespace ZENNO::platform
