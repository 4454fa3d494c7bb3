#include "apps/log/Trace.h"

#include <algorithm>

namespace velmora_log {
namespace {

std::uint32_t wordAt(std::string_view text, std::size_t word) noexcept {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<std::uint8_t>(text[word * 4 + i]);
    }
    return value;
}

}  // namespace

bool beginsTrace(std::string_view text) noexcept {
    if (text.size() < 4) return false;
    const std::uint32_t word = wordAt(text, 0);
    const std::uint32_t pairs = word >> 16 & 0xff;
    return (word & 0xff00'ffff) == 0x0100'0000 && pairs >= 1 && pairs <= tracePairs;
}

std::optional<std::vector<SentPacket>> readTrace(std::string_view text) {
    if (text.size() != traceBytes || !beginsTrace(text)) return std::nullopt;
    const std::size_t pairs = wordAt(text, 0) >> 16 & 0xff;
    std::vector<SentPacket> packets(pairs);
    for (std::size_t i = 0; i < pairs; ++i) {
        packets[i] = {wordAt(text, 2 * i + 1), wordAt(text, 2 * i + 2)};
    }
    const std::string_view rest = text.substr((2 * pairs + 1) * 4);
    const bool isEmpty = std::all_of(rest.begin(), rest.end(), [](char c) { return c == '\0'; });
    return isEmpty ? std::optional(packets) : std::nullopt;
}

}  // namespace velmora_log
