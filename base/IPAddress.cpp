#include "base/IPAddress.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cstring>
#include <optional>

#include "base/Number.h"

namespace ZENNO {

namespace {

constexpr std::uint16_t linkLocalGroup = 0xfe80;
constexpr std::uint16_t linkLocalCode = 0xfe01;
constexpr std::uint16_t otherCode = 0xfe00;

void appendNumber(std::string& out, unsigned value, int base) {
    char digits[12];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, base).ptr;
    out.append(digits, end);
}

// -1 for anything but a hexadecimal digit.
int hexDigit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Digits and nothing else; no digits are 0, a large number is taken modulo 65536.
std::optional<std::uint16_t> readPort(std::string_view text) noexcept {
    std::uint32_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = (value * 10 + static_cast<std::uint32_t>(c - '0')) & 0xffff;
    }
    return static_cast<std::uint16_t>(value);
}

}  // namespace

IPAddress IPAddress::of(const std::array<std::uint16_t, 8>& groups, std::uint16_t port,
                        std::uint32_t scope) noexcept {
    IPAddress made;
    for (int i = 0; i < 8; ++i) made.setWord(i, groups[static_cast<std::size_t>(i)]);
    made.setPortNumber(port);
    made.scope = scope;
    return made;
}

IPAddress IPAddress::loopbackV6(std::uint16_t port) noexcept {
    return of({0, 0, 0, 0, 0, 0, 0, 1}, port);
}

IPAddress IPAddress::allNodes(std::uint16_t port, std::uint32_t scope) noexcept {
    return of({0xff02, 0, 0, 0, 0, 0, 0, 1}, port, scope);
}

std::uint16_t IPAddress::word(int i) const noexcept {
    assert(i >= 0 && i < 8);
    const auto at = static_cast<std::size_t>(i) * 2;
    return static_cast<std::uint16_t>(address[at] << 8 | address[at + 1]);
}

void IPAddress::setWord(int i, std::uint16_t v) noexcept {
    assert(i >= 0 && i < 8);
    const auto at = static_cast<std::size_t>(i) * 2;
    address[at] = static_cast<std::uint8_t>(v >> 8);
    address[at + 1] = static_cast<std::uint8_t>(v);
}

std::uint16_t IPAddress::portNumber() const noexcept {
    return static_cast<std::uint16_t>(port[0] << 8 | port[1]);
}

void IPAddress::setPortNumber(std::uint16_t number) noexcept {
    port = {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

std::uint16_t IPAddress::portRaw() const noexcept {
    std::uint16_t raw;
    std::memcpy(&raw, port.data(), sizeof raw);
    return raw;
}

void IPAddress::setPortRaw(std::uint16_t raw) noexcept {
    std::memcpy(port.data(), &raw, sizeof raw);
}

std::uint32_t IPAddress::v4Raw() const noexcept {
    std::uint32_t raw;
    std::memcpy(&raw, &address[12], sizeof raw);
    return raw;
}

std::uint32_t IPAddress::v4Number() const noexcept {
    return static_cast<std::uint32_t>(address[12]) << 24 |
           static_cast<std::uint32_t>(address[13]) << 16 |
           static_cast<std::uint32_t>(address[14]) << 8 | address[15];
}

void IPAddress::setV4Raw(std::uint32_t raw) noexcept {
    address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    std::memcpy(&address[12], &raw, sizeof raw);
}

void IPAddress::copyTo(std::uint16_t groups[8]) const noexcept {
    std::memcpy(groups, address.data(), address.size());
}

void IPAddress::copyFrom(const std::uint16_t groups[8]) noexcept {
    std::memcpy(address.data(), groups, address.size());
}

bool IPAddress::isLoopback() const noexcept {
    return address == loopbackV6().address;
}

bool IPAddress::isLinkLocal() const noexcept {
    return word(0) == linkLocalGroup;
}

std::uint16_t IPAddress::linkCode() const noexcept {
    return isLinkLocal() ? linkLocalCode : otherCode;
}

bool IPAddress::isZeroAddress() const noexcept {
    return address == decltype(address){};
}

bool IPAddress::isNone() const noexcept {
    return isZeroAddress() && portNumber() == 0;
}

// A form for eyes: a gap begins at the first zero group that is not the last one or two, and
// swallows the group behind it unseen. 2001:0:1:2:3:4:5:6 reads 2001::2:3:4:5:6. Viewers of the log
// know it so, and nothing parses it back.
void IPAddress::toText(std::string& out) const {
    out.clear();
    bool compressed = false;
    for (int i = 0; i < 7;) {
        if (!compressed && word(i) == 0) {
            int j = i + 2;
            while (j < 8 && word(j) == 0) ++j;
            if (j < 8) {
                out += i == 0 ? "::" : ":";
                appendNumber(out, word(j), 16);
                if (j == 7) return;
                out += ':';
                compressed = true;
                i = j + 1;
                continue;
            }
            if (word(7) == 0) {
                out += i == 0 ? "::" : ":";
                return;
            }
        }
        appendNumber(out, word(i), 16);
        out += ':';
        ++i;
    }
    appendNumber(out, word(7), 16);
}

void IPAddress::toTextWithPort(std::string& out) const {
    toText(out);
    out += ',';
    appendNumber(out, portNumber(), 10);
}

void IPAddress::toTextV4(std::string& out) const {
    out.clear();
    for (std::size_t i = 12; i < 16; ++i) {
        if (i != 12) out += '.';
        appendNumber(out, address[i], 10);
    }
}

void IPAddress::portText(std::string& out) const {
    out.clear();
    appendNumber(out, portNumber(), 10);
}

std::string IPAddress::text() const {
    std::string out;
    toText(out);
    return out;
}

// Every colon closes a group, also an empty one, whose value is 0: so a single colon at either end
// is no error, and ::1: ends in the groups 1 and 0.
bool IPAddress::parseV6(std::string_view text) noexcept {
    constexpr int none = -1;
    std::array<std::uint16_t, 8> groups{};
    std::size_t group = 0;
    unsigned value = 0;
    int digits = 0;
    int gapAt = none;
    bool afterColon = false;

    for (const char c : text) {
        if (c == ':') {
            digits = 0;
            if (afterColon) {
                if (gapAt != none) return false;
                gapAt = static_cast<int>(group);
            } else {
                groups[group] = static_cast<std::uint16_t>(value);
                if (++group == 8) return false;
                value = 0;
                afterColon = true;
            }
            continue;
        }
        afterColon = false;
        const int digit = hexDigit(c);
        if (digit < 0 || ++digits > 4) return false;
        value = value * 16 + static_cast<unsigned>(digit);
    }
    groups[group] = static_cast<std::uint16_t>(value);

    if (gapAt == none) {
        if (group != 7) return false;
    } else {
        if (group > 6) return false;
        // What stands behind the gap goes to the end, so that the last group read is group 7.
        const auto gap = groups.begin() + gapAt;
        const auto moved = std::copy_backward(
            gap, groups.begin() + static_cast<std::ptrdiff_t>(group) + 1, groups.end());
        std::fill(gap, moved, std::uint16_t{0});
    }
    for (int i = 0; i < 8; ++i) setWord(i, groups[static_cast<std::size_t>(i)]);
    return true;
}

bool IPAddress::parsePort(std::string_view text) noexcept {
    const auto number = readPort(text);
    if (!number) return false;
    setPortNumber(*number);
    return true;
}

bool IPAddress::parseV6WithPort(std::string_view text) noexcept {
    const auto comma = text.find(',');
    if (comma == std::string_view::npos) return false;
    // The address stays taken even where the port behind it is refused.
    return parseV6(text.substr(0, comma)) && parsePort(text.substr(comma + 1));
}

bool IPAddress::parseV4WithPort(std::string_view text) noexcept {
    static constexpr std::int64_t largest = 0x7fffffff;  // read as a 32-bit integer, then cut
    const auto readNumber = [](std::string_view from) {
        return std::min(readInteger(from), largest);
    };

    std::array<std::uint8_t, 4> bytes{};
    for (std::size_t i = 0; i < 4; ++i) {
        const std::int64_t number = readNumber(text);
        if (number < 0) return false;
        bytes[i] = static_cast<std::uint8_t>(number);
        if (i == 3) break;
        const auto point = text.find('.');
        if (point == std::string_view::npos) return false;
        text.remove_prefix(point + 1);
    }
    std::int64_t number = 0;
    if (const auto comma = text.find(','); comma != std::string_view::npos) {
        number = readNumber(text.substr(comma + 1));
        if (number < 0) return false;
    }

    std::uint32_t raw;
    std::memcpy(&raw, bytes.data(), sizeof raw);
    *this = {};
    setV4Raw(raw);
    setPortNumber(static_cast<std::uint16_t>(number));
    return true;
}

}  // namespace ZENNO
