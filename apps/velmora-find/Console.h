// What a program's start differs in from system to system.
#pragma once

#include <string>
#include <vector>

namespace velmora_find {

// The arguments in UTF-8, without the program's name. Standard output is UTF-8 from here on.
std::vector<std::string> startConsole(int count, char** values);

}  // namespace velmora_find
