#include "target/Text.h"

#include "base/Printable.h"

namespace velmora_target {

bool isPlainText(std::string_view text) {
    return ZENNO::isPrintable(text);
}

std::string shownText(std::string_view text) {
    return ZENNO::printable(text, mostShown);
}

}  // namespace velmora_target
