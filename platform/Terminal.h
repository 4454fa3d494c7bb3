// Who reads what a program prints. Both bodies pass tests/platform/TerminalTest.cpp.
#pragma once

namespace ZENNO::platform {

bool errorIsTerminal() noexcept;  // standard error goes to a person's screen

}  // namespace ZENNO::platform
