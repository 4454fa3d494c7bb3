#include "apps/velmora-settings/model/Address.h"

#include <array>
#include <charconv>

namespace velmora_settings {
namespace {

std::string allGroups(const ZENNO::IPAddress& address) {
    std::string text;
    for (int i = 0; i < 8; ++i) {
        std::array<char, 4> digits;
        const auto end =
            std::to_chars(digits.data(), digits.data() + digits.size(), address.word(i), 16).ptr;
        if (i != 0) text += ':';
        text.append(digits.data(), end);
    }
    return text;
}

}  // namespace

// The log's form leaves out a group that stands alone behind a zero: written to a file, it would be
// the address of somebody else.
std::string addressText(const ZENNO::IPAddress& address) {
    std::string text = address.text();
    ZENNO::IPAddress read;
    const bool saysAll = read.parseV6(text) && read.address == address.address;
    return saysAll ? text : allGroups(address);
}

std::string addressTextWithPort(const ZENNO::IPAddress& address) {
    return addressText(address) + ',' + std::to_string(address.portNumber());
}

}  // namespace velmora_settings
