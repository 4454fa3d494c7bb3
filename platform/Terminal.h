// Who reads what a program prints. Both bodies pass tests/platform/TerminalTest.cpp.
#pragma once

namespace ZENNO::platform {

bool errorIsTerminal() noexcept;  // standard error goes to a person's screen
// Standard output does, and its screen obeys the commands of ANSI for colours; on Windows it is
// asked to.
bool outputTakesColours() noexcept;

}  // namespace ZENNO::platform
