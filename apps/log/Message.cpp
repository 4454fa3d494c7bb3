#include "apps/log/Message.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace velmora_log {
namespace {

constexpr std::string_view months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::size_t stampSize = 15;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Two digits within a range, or -1.
int twoDigits(std::string_view text, std::size_t at, int least, int most) {
    const bool isBlankTen = at == 4 && text[at] == ' ';  // RFC 3164's form of a day below 10
    if (!(isDigit(text[at]) || isBlankTen) || !isDigit(text[at + 1])) return -1;
    const int value = (isBlankTen ? 0 : text[at] - '0') * 10 + text[at + 1] - '0';
    return value >= least && value <= most ? value : -1;
}

struct Header {
    std::optional<std::uint8_t> priority;
    std::optional<Stamp> stamp;
    std::string_view host;
    std::size_t textAt = 0;
    bool isWhole() const { return !host.empty(); }
};

// "<134>": no leading zeros, and no more than its byte holds.
void readPriority(std::string_view datagram, Header& header) {
    const std::size_t end = datagram.substr(0, 5).find('>');
    if (datagram.empty() || datagram[0] != '<' || end == std::string_view::npos || end < 2) return;
    const std::string_view digits = datagram.substr(1, end - 1);
    if (!std::all_of(digits.begin(), digits.end(), isDigit)) return;
    if (digits.size() > 1 && digits[0] == '0') return;
    int value = 0;
    for (const char c : digits) value = value * 10 + (c - '0');
    if (value > 255) return;
    header.priority = static_cast<std::uint8_t>(value);
    header.textAt = end + 1;
}

Header readHeader(std::string_view datagram) {
    Header header;
    readPriority(datagram, header);
    if (!header.priority) return header;
    const std::string_view rest = datagram.substr(header.textAt);
    if (rest.size() <= stampSize || rest[stampSize] != ' ') return header;
    header.stamp = readStamp(rest.substr(0, stampSize));
    if (!header.stamp) return header;
    header.textAt += stampSize + 1;
    const std::string_view named = rest.substr(stampSize + 1);
    constexpr std::size_t longestHost = 255;
    const std::size_t end = named.substr(0, longestHost + 1).find_first_of(" \n");
    if (end == std::string_view::npos || end == 0 || named[end] != ' ') return header;
    header.host = named.substr(0, end);
    header.textAt += end + 1;
    return header;
}

}  // namespace

std::string stampText(const Stamp& stamp) {
    char text[80];
    std::snprintf(text, sizeof text, "%s %02d %02d:%02d:%02d",
                  std::string(months[static_cast<std::size_t>(stamp.month - 1) % 12]).c_str(),
                  stamp.day, stamp.hour, stamp.minute, stamp.second);
    return text;
}

std::optional<Stamp> readStamp(std::string_view text) {
    if (text.size() != stampSize || text[3] != ' ' || text[6] != ' ' || text[9] != ':' ||
        text[12] != ':') {
        return std::nullopt;
    }
    const auto month = std::find(std::begin(months), std::end(months), text.substr(0, 3));
    Stamp stamp;
    stamp.month = static_cast<int>(month - std::begin(months)) + 1;
    stamp.day = twoDigits(text, 4, 1, 31);
    stamp.hour = twoDigits(text, 7, 0, 23);
    stamp.minute = twoDigits(text, 10, 0, 59);
    stamp.second = twoDigits(text, 13, 0, 60);
    const bool isGood = month != std::end(months) && stamp.day > 0 && stamp.hour >= 0 &&
                        stamp.minute >= 0 && stamp.second >= 0;
    return isGood ? std::optional(stamp) : std::nullopt;
}

Message readMessage(std::string_view datagram) {
    const Header header = readHeader(datagram);
    Message message{header.priority, header.stamp, std::string(header.host), {}, {}};
    std::string_view text = datagram.substr(header.textAt);
    if (header.isWhole()) {
        if (auto trace = readTrace(text)) {
            message.trace = std::move(*trace);
            return message;
        }
        // With a priority of two digits the driver's datagram takes the closing NUL along.
        if (*header.priority >= 10 && *header.priority < 100 && text.ends_with('\0')) {
            text.remove_suffix(1);
        }
    }
    message.text = text;
    return message;
}

std::optional<std::size_t> textAt(std::string_view datagram) {
    const Header header = readHeader(datagram);
    return header.isWhole() ? std::optional(header.textAt) : std::nullopt;
}

}  // namespace velmora_log
