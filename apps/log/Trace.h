// The record of when packets went out and how large they were, which the driver puts among its log
// lines, about every 50 ms of a stream.
//
//   word 0           | word 2k+1     | word 2k+2           (353 u32 words, little-endian)
//   (pairs|0x100)<<16| time sent, µs | bytes on the wire
//
// Times wrap. What is behind the last pair is zero.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace velmora_log {

struct SentPacket {
    std::uint32_t micros = 0;
    std::uint32_t wireBytes = 0;
    friend bool operator==(const SentPacket&, const SentPacket&) = default;
};

inline constexpr std::size_t traceBytes = std::size_t{353} * 4;
inline constexpr std::size_t tracePairs = 176;

// Whether a record begins here, as far as its first word tells.
bool beginsTrace(std::string_view text) noexcept;
// Nothing where `text` is not one whole record.
std::optional<std::vector<SentPacket>> readTrace(std::string_view text);

}  // namespace velmora_log
