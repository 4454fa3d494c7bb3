#include "platform/Terminal.h"

#include <windows.h>

#include <io.h>

#include <cstdio>

namespace ZENNO::platform {

bool errorIsTerminal() noexcept {
    return _isatty(_fileno(stderr)) != 0;
}

bool outputTakesColours() noexcept {
    const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return _isatty(_fileno(stdout)) != 0 && GetConsoleMode(console, &mode) != 0 &&
           SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

}  // namespace ZENNO::platform
