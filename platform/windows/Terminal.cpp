#include "platform/Terminal.h"

#include <io.h>
#include <cstdio>

namespace ZENNO::platform {

bool errorIsTerminal() noexcept {
    return _isatty(_fileno(stderr)) != 0;
}

}  // namespace ZENNO::platform
