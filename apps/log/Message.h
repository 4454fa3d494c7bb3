// One datagram of the log: syslog's priority, time and host, and the text behind them.
//
//   <134>Mar 05 17:02:09 localhost start SPEED=44100          no newline
//    |   |               |         the text, or a packet trace (Trace.h)
//    |   local time of whoever sent it, without a year
//    facility x 8 + severity, 0 to 255
//
// What looks otherwise is somebody else's: a text without the rest, as far as the rest is missing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/log/Trace.h"

namespace velmora_log {

struct Stamp {
    int month = 1, day = 1, hour = 0, minute = 0, second = 0;  // month and day from 1
    friend bool operator==(const Stamp&, const Stamp&) = default;
};
std::string stampText(const Stamp& stamp);              // "Mar 05 17:02:09"
std::optional<Stamp> readStamp(std::string_view text);  // of those 15 characters

struct Message {
    std::optional<std::uint8_t> priority;
    std::optional<Stamp> stamp;
    std::string host;
    std::string text;               // as it came, any bytes; empty where it is a trace
    std::vector<SentPacket> trace;  // empty where it is none

    std::optional<std::uint8_t> severity() const {
        return priority ? std::optional<std::uint8_t>(*priority & 7) : std::nullopt;
    }
    bool isTrace() const { return !trace.empty(); }
    friend bool operator==(const Message&, const Message&) = default;
};

Message readMessage(std::string_view datagram);

// Where the text of a message begins that has all of the header; nothing for any other.
std::optional<std::size_t> textAt(std::string_view datagram);

// A message as it came to be heard.
struct Line {
    Message message;
    std::optional<std::int64_t> heardMicros;  // since 1970, UTC; none where nobody noted it
    std::uint16_t port = 0;                   // the sender's, which tells programs apart; 0 unknown
    friend bool operator==(const Line&, const Line&) = default;
};

}  // namespace velmora_log
