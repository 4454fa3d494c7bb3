#include "apps/velmora-find/Console.h"

namespace velmora_find {

std::vector<std::string> startConsole(int count, char** values) {
    return {values + (count > 0 ? 1 : 0), values + count};
}

}  // namespace velmora_find
