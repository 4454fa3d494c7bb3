#include <string_view>

#include "wire/DiscoveryMessage.h"

namespace VELMORA::wire {

std::string replaceMyAddress(std::string text, const ZENNO::IPAddress& target) {
    constexpr std::string_view marker = "[myaddress]";
    const std::size_t at = text.find(marker);
    if (at == std::string::npos) return text;
    return text.replace(at, marker.size(), '[' + target.text() + ']');
}

}  // namespace VELMORA::wire
