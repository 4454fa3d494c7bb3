#include "driver/SinkConfig.h"

namespace VELMORA {
namespace {

struct ChannelRow {
    std::uint64_t code;
    std::uint32_t count;
};
constexpr ChannelRow channelRows[] = {{0x01, 1}, {0x02, 2}, {0x04, 4},
                                      {0x08, 6}, {0x10, 8}, {0x20, 16}};

struct FormatRow {
    std::uint64_t format;
    std::uint32_t bits, bytes;
};
constexpr FormatRow pcmRows[] = {
    {SinkConfig::pcm8, 8, 1},     {SinkConfig::pcm16, 16, 2}, {SinkConfig::pcm24, 24, 3},
    {SinkConfig::pcm32, 32, 4},   {SinkConfig::pcm64, 64, 8}, {SinkConfig::float32, 32, 4},
    {SinkConfig::float64, 64, 8},
};
constexpr FormatRow otherFormat = {0, 16, 2};

constexpr unsigned multiplierShift = 35;
constexpr std::uint64_t multiplierMask = SinkConfig::rateMask >> multiplierShift;  // 13 bits
constexpr std::uint64_t familyMask =
    SinkConfig::family8000 | SinkConfig::family44100 | SinkConfig::family48000;
constexpr std::uint32_t lowestDsdRate = 2'822'400;

struct FamilyRow {
    std::uint64_t family;
    std::uint32_t base;
};
constexpr FamilyRow multipliedFamilies[] = {{SinkConfig::family44100, 44'100},
                                            {SinkConfig::family48000, 48'000}};

constexpr bool isDsdFormat(std::uint64_t format) {
    return format == SinkConfig::dsd1 || format == SinkConfig::dsd4;
}

FormatRow formatRow(std::uint64_t word) {
    const std::uint64_t format = word & SinkConfig::formatMask;
    for (const FormatRow& row : pcmRows) {
        if (row.format == format) return row;
    }
    if (isDsdFormat(format)) {
        // A DSD sample travels in a word of its class; without the class it counts as two bytes.
        const bool inWords = (word & SinkConfig::dsdClassMask) == SinkConfig::dsdClass;
        return {format, format == SinkConfig::dsd1 ? 1u : 4u, inWords ? 4u : 2u};
    }
    return otherFormat;
}

constexpr bool exactlyOne(std::uint64_t word, std::uint64_t a, std::uint64_t b) {
    return ((word & a) != 0) != ((word & b) != 0);
}

bool isKnownChannelCode(std::uint64_t code) {
    for (const ChannelRow& row : channelRows) {
        if (row.code == code) return true;
    }
    return false;
}

}  // namespace

std::uint32_t SinkConfig::channels() const noexcept {
    for (const ChannelRow& row : channelRows) {
        if (row.code == (word & channelMask)) return row.count;
    }
    return 2;
}

std::uint32_t SinkConfig::bitsPerSample() const noexcept {
    return formatRow(word).bits;
}

std::uint32_t SinkConfig::bytesPerSample() const noexcept {
    return formatRow(word).bytes;
}

std::uint32_t SinkConfig::baseRate() const noexcept {
    const std::uint64_t family = word & familyMask;
    for (const FamilyRow& row : multipliedFamilies) {
        if (row.family == family) return row.base;
    }
    // The family of 8000 knows no multiples: with a multiplier it is no rate at all.
    return (word & rateMask) == family8000 ? 8000 : 0;
}

std::uint32_t SinkConfig::rate() const noexcept {
    // One bit of the multiplier field is its own number: bit 35 is 1, bit 36 is 2, bit 47 is 4096.
    // The family of 8000 falls out as 0 on both ways: no multiplier, or no base.
    const std::uint64_t multiplier = (word >> multiplierShift) & multiplierMask;
    return static_cast<std::uint32_t>(baseRate() * multiplier);
}

bool SinkConfig::setRate(std::uint32_t hz) noexcept {
    if (hz == 8000) {
        word = (word & ~rateMask) | family8000;
        return true;
    }
    for (const FamilyRow& row : multipliedFamilies) {
        for (std::uint64_t multiplier = 1; multiplier <= 4096; multiplier *= 2) {
            if (row.base * multiplier != hz) continue;
            word = (word & ~rateMask) | row.family | multiplier << multiplierShift;
            return true;
        }
    }
    return false;
}

bool SinkConfig::setChannels(std::uint32_t count) noexcept {
    for (const ChannelRow& row : channelRows) {
        if (row.count != count) continue;
        word = (word & ~channelMask) | row.code;
        return true;
    }
    return false;
}

bool SinkConfig::isValid() const noexcept {
    if (!isKnownChannelCode(word & channelMask)) return false;
    const std::uint64_t format = word & formatMask;
    constexpr std::uint64_t dsdFields = dsdLsb | dsdMsb | dsdLittle | dsdBig | dsdClassMask;
    if (isDsdFormat(format)) {
        return exactlyOne(word, dsdLsb, dsdMsb) && exactlyOne(word, dsdLittle, dsdBig) &&
               (word & dsdClassMask) == dsdClass && rate() >= lowestDsdRate;
    }
    for (const FormatRow& row : pcmRows) {
        // A PCM format may have any rate here, none included.
        if (row.format == format) return (word & dsdFields) == 0;
    }
    return false;
}

std::uint8_t silenceByte(SinkConfig format, bool inverted) noexcept {
    std::uint8_t silence = 0x00;
    // A DSD signal of equal ones and zeros, read in the order in which its bits are played.
    if (format.isDsd()) silence = format.has(SinkConfig::dsdLsb) ? 0x69 : 0x96;
    return inverted ? static_cast<std::uint8_t>(~silence) : silence;
}

}  // namespace VELMORA
