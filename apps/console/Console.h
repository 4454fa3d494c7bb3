// What a program's start, and the ways to speak to it while it runs, differ in from system to
// system.
#pragma once

#include <string>
#include <vector>

namespace velmora_console {

// The arguments in UTF-8, without the program's name. Standard output is UTF-8 from here on.
std::vector<std::string> startConsole(int count, char** values);

// From here on an interrupt (Ctrl-C, the end that a system asks for) is told by interrupted()
// instead of ending the program, as is the wish to see how things stand: Ctrl-\ where terminals
// have it, Ctrl-Break on Windows. A reader that has gone shows as a failed write.
void listenForSignals();
bool interrupted();
bool takeAsked();  // once for each wish, or a few that came together
extern const char* const askingKey;

}  // namespace velmora_console
