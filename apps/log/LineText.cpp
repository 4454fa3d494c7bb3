#include "apps/log/LineText.h"

#include <cstdio>
#include <cstdlib>

#include "apps/log/Severity.h"
#include "base/Printable.h"

namespace velmora_log {
namespace {

constexpr const char *red = "\x1b[1;31m", *yellow = "\x1b[33m", *dim = "\x1b[2m",
                     *plain = "\x1b[0m";

const char* colourOf(std::uint8_t severity) {
    if (severity <= 3) return red;
    if (severity == 4) return yellow;
    return severity == 7 ? dim : "";
}

std::string coloured(const std::string& text, const char* colour, bool colours) {
    return colours && *colour != '\0' ? colour + text + plain : text;
}

// Seconds of a month, to see whether two times lie apart; nobody stays between two months for long.
int secondsOf(int day, int hour, int minute, int second) {
    return ((day * 24 + hour) * 60 + minute) * 60 + second;
}

std::string timeText(const Line& line, const Zone& zone) {
    const auto& stamp = line.message.stamp;
    if (!line.heardMicros) return stamp ? stampText(*stamp) : "-";
    const Moment m = zone(*line.heardMicros);
    char text[80];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", m.hour, m.minute, m.second,
                  m.micros / 1000);
    if (!stamp) return text;
    const int apart = secondsOf(stamp->day, stamp->hour, stamp->minute, stamp->second) -
                      secondsOf(m.day, m.hour, m.minute, m.second);
    if (stamp->month == m.month && std::abs(apart) <= 1) return text;
    return std::string(text) + " (says " + stampText(*stamp) + ")";
}

std::string traceText(const std::vector<SentPacket>& trace) {
    std::uint64_t bytes = 0;
    for (const SentPacket& packet : trace) bytes += packet.wireBytes;
    char text[120];
    std::snprintf(text, sizeof text, "packet trace: %zu packets in %.1f ms, %llu bytes",
                  trace.size(), (trace.back().micros - trace.front().micros) / 1000.0,
                  static_cast<unsigned long long>(bytes));
    return text;
}

}  // namespace

std::string lineText(const Line& line, const Zone& zone, const TextManner& manner) {
    const Message& message = line.message;
    const auto severity = message.severity();
    std::string level(severity ? severityName(*severity) : "-");
    level.resize(7, ' ');
    std::string text;
    if (manner.program != 0) text = "[" + std::to_string(manner.program) + "] ";
    // A host other than the driver's constant word is worth its place.
    if (!message.host.empty() && message.host != "localhost") {
        text += ZENNO::printable(message.host) + ": ";
    }
    text += message.isTrace() ? traceText(message.trace) : ZENNO::printable(message.text);
    const char* const colour = severity ? colourOf(*severity) : "";
    return coloured(timeText(line, zone), dim, manner.colours) + "  " +
           coloured(level + "  " + text, colour, manner.colours);
}

}  // namespace velmora_log
