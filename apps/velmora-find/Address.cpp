#include "apps/velmora-find/Address.h"

#include <algorithm>
#include <cstdio>

#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

using ZENNO::IPAddress;
constexpr auto npos = std::string_view::npos;

struct Parts {
    std::string_view host;                 // address and interface
    std::optional<std::string_view> port;  // its digits
};

std::optional<Parts> split(std::string_view text) {
    if (text.starts_with('[')) {
        const auto end = text.rfind(']');
        if (end == npos) return std::nullopt;
        const auto host = text.substr(1, end - 1), rest = text.substr(end + 1);
        if (rest.empty()) return Parts{host, std::nullopt};
        if (rest.front() != ':') return std::nullopt;
        return Parts{host, rest.substr(1)};
    }
    // An interface's name may hold a comma of its own: the last one counts, before digits alone.
    const auto comma = text.rfind(',');
    if (comma != npos && readNumber(text.substr(comma + 1))) {
        return Parts{text.substr(0, comma), text.substr(comma + 1)};
    }
    return Parts{text, std::nullopt};
}

struct Gap {
    int at = 8, length = 1;  // a lone zero group is written out
};
Gap longestGap(const IPAddress& address) {
    Gap best;
    for (int i = 0; i < 8; ++i) {
        int length = 0;
        while (i + length < 8 && address.word(i + length) == 0) ++length;
        if (length > best.length) best = {i, length};
    }
    return best;
}

}  // namespace

std::optional<TypedAddress> readAddress(std::string_view text) {
    const auto parts = split(text);
    if (!parts) return std::nullopt;
    TypedAddress out;
    const auto percent = parts->host.find('%');
    if (percent != npos) {
        out.interface = parts->host.substr(percent + 1);
        if (out.interface->empty()) return std::nullopt;
    }
    const auto address = parts->host.substr(0, percent);
    if (address.find(':') == npos || !out.address.parseV6(address)) return std::nullopt;
    out.address.setPortNumber(VELMORA::wire::ControlPort);
    if (parts->port) {
        const auto port = readNumber(*parts->port, 65535);
        if (!port || *port == 0) return std::nullopt;
        out.address.setPortNumber(static_cast<std::uint16_t>(*port));
    }
    return out;
}

std::string addressText(const IPAddress& address) {
    const Gap gap = longestGap(address);
    std::string out;
    for (int i = 0; i < 8; ++i) {
        if (i == gap.at) {
            out += "::";
            i += gap.length - 1;
            continue;
        }
        if (!out.empty() && out.back() != ':') out += ':';
        char digits[8];
        std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned>(address.word(i)));
        out += digits;
    }
    return out;
}

bool isPlainWord(std::string_view name) {
    constexpr std::string_view others = "._-";
    return !name.empty() && std::all_of(name.begin(), name.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               others.find(c) != npos;
    });
}

std::string shownAddress(const IPAddress& address, const Links& links) {
    std::string out = addressText(address);
    if (address.scope != 0) {
        const std::string name = links.nameOf(address.scope);
        out += "%" + (isPlainWord(name) ? name : std::to_string(address.scope));
    }
    if (address.portNumber() == VELMORA::wire::ControlPort) return out;
    return "[" + out + "]:" + std::to_string(address.portNumber());
}

}  // namespace velmora_find
