#include "platform/Terminal.h"

#include <unistd.h>

namespace ZENNO::platform {

bool errorIsTerminal() noexcept {
    return isatty(STDERR_FILENO) == 1;
}

}  // namespace ZENNO::platform
