// One-bit audio between its two shapes: the 32-bit words of a stream and the bytes of a file.
//
// A stream interleaves words, one a channel, and says by two properties how 32 successive samples
// lie in a word. A file's natural shape is bytes, one a channel in turn, each with its oldest
// sample in bit 0. Both directions keep the samples' order in time exactly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace velmora_audio {

struct DsdOrder {
    bool oldestIsLsb = true;   // the oldest sample is the word's least (else most) significant bit
    bool littleEndian = true;  // the word's least (else most) significant byte lies first
};

constexpr std::size_t dsdWordBytes = 4;

constexpr std::uint8_t reverseBits(std::uint8_t v) noexcept {
    unsigned b = v;
    b = (b & 0x0f) << 4 | (b & 0xf0) >> 4;
    b = (b & 0x33) << 2 | (b & 0xcc) >> 2;
    b = (b & 0x55) << 1 | (b & 0xaa) >> 1;
    return static_cast<std::uint8_t>(b);
}

// Interleaved words to interleaved bytes, oldest sample in bit 0. `channels` is not 0, both spans
// have the same size; a rest that is no whole word of every channel is left out. Gives the bytes
// converted.
std::size_t bytesFromDsdWords(DsdOrder order, std::size_t channels,
                              std::span<const std::uint8_t> words,
                              std::span<std::uint8_t> bytes) noexcept;
// The way back.
std::size_t dsdWordsFromBytes(DsdOrder order, std::size_t channels,
                              std::span<const std::uint8_t> bytes,
                              std::span<std::uint8_t> words) noexcept;

}  // namespace velmora_audio
