// The 64-bit word that names one stream format, inside the system and on the wire.
//
//   bits  0..7   channel code: 0x01 one, 0x02 two, 0x04 four, 0x08 six, 0x10 eight, 0x20 sixteen
//   bits  8..19  sample format
//   bit  20/21   DSD: the oldest sample is the word's LSB / MSB
//   bit  22/23   DSD: the word lies little-endian / big-endian
//   bits 24..31  DSD word class, 0x02 in every valid DSD format
//   bits 32..34  rate family: 8000, 44100, 48000
//   bits 35..47  rate multiplier, one bit: x1, x2 ... x4096
//
// Every field is a single bit of its range, so that a set of formats is the union of its members.
#pragma once

#include <cstdint>

namespace VELMORA {

class SinkConfig {
public:
    // sample formats
    static constexpr std::uint64_t pcm8 = 0x100, pcm16 = 0x200, pcm24 = 0x400, pcm32 = 0x800,
                                   pcm64 = 0x1000, float32 = 0x2000, float64 = 0x4000,
                                   dsd1 = 0x10000, dsd4 = 0x20000;
    static constexpr std::uint64_t channelMask = 0xff, pcmMask = 0xff00, formatMask = 0xfff00,
                                   dsdMask = 0xf0000;
    static constexpr std::uint64_t dsdLsb = 1u << 20, dsdMsb = 1u << 21, dsdLittle = 1u << 22,
                                   dsdBig = 1u << 23, dsdClassMask = 0xff000000,
                                   dsdClass = 0x02000000;
    static constexpr std::uint64_t family8000 = 1ull << 32, family44100 = 1ull << 33,
                                   family48000 = 1ull << 34;
    static constexpr std::uint64_t rateMask = 0x0000'ffff'0000'0000;
    // the four DSD formats, bits 8..31
    static constexpr std::uint64_t dsdLsbLittle = 0x2510000, dsdLsbBig = 0x2910000,
                                   dsdMsbLittle = 0x2610000, dsdMsbBig = 0x2A10000;

    constexpr SinkConfig() = default;
    constexpr explicit SinkConfig(std::uint64_t bits) : word(bits) {}

    std::uint64_t word = 0;

    std::uint32_t channels() const noexcept;        // 2 for an unknown code
    std::uint32_t bitsPerSample() const noexcept;   // 16 for an unknown format
    std::uint32_t bytesPerSample() const noexcept;  // 2 for an unknown format
    std::uint32_t frameBytes() const noexcept { return bytesPerSample() * channels(); }
    // 0 unless exactly one family is set; 8000 only where no multiplier is.
    std::uint32_t baseRate() const noexcept;
    std::uint32_t rate() const noexcept;  // Hz; 0 for the 8000 family and without a multiplier
    // Replaces bits 32..47; false, and nothing changed, for a rate that cannot be written: 8000,
    // and 44100 and 48000 times 1, 2, 4 ... 4096 can.
    bool setRate(std::uint32_t hz) noexcept;
    bool setChannels(std::uint32_t count) noexcept;  // 1, 2, 4, 6, 8, 16; else false, unchanged
    // One channel code; one PCM format with nothing of DSD, at any rate, none included; or one DSD
    // format with one bit order, one word order and its word class, from 2822400 Hz on. Bits 48..63
    // are not looked at.
    bool isValid() const noexcept;
    constexpr bool isPcm() const noexcept { return (word & pcmMask) != 0; }
    constexpr bool isDsd() const noexcept { return (word & dsdMask) != 0 && !isPcm(); }
    constexpr bool has(std::uint64_t bits) const noexcept { return (word & bits) == bits; }

    friend constexpr bool operator==(SinkConfig, SinkConfig) noexcept = default;
};

// What stands for silence in a stream: one byte, repeated. Inverted polarity inverts it.
std::uint8_t silenceByte(SinkConfig format, bool inverted) noexcept;

}  // namespace VELMORA
