#include "target/FormatMasks.h"

namespace velmora_target {

using VELMORA::SinkConfig;

std::uint64_t FormatMasks::summary() const noexcept {
    std::uint64_t word = pcm & SinkConfig::pcmMask;
    word |= (dsdLsb | dsdMsb) & SinkConfig::dsdMask;
    if (dsdLsb != 0) word |= SinkConfig::dsdLsb;
    if (dsdMsb != 0) word |= SinkConfig::dsdMsb;
    return word;
}

std::uint64_t FormatMasks::answer(std::uint64_t selector) const noexcept {
    if (selector == 0) return summary();
    if ((selector & SinkConfig::pcmMask) != 0) return pcm;
    if ((selector & SinkConfig::dsdLsb) != 0) return dsdLsb;
    if ((selector & SinkConfig::dsdMsb) != 0) return dsdMsb;
    return 0;
}

bool FormatMasks::takes(SinkConfig format) const noexcept {
    if (!format.isValid() || format.rate() == 0) return false;
    if (format.isPcm()) return (format.word & ~pcm) == 0;
    return (format.word & ~(format.has(SinkConfig::dsdLsb) ? dsdLsb : dsdMsb)) == 0;
}

std::uint64_t channelBits(std::uint32_t channels) noexcept {
    SinkConfig config;
    return config.setChannels(channels) ? config.word : 0;
}

std::uint64_t rateBits(std::uint32_t hz) noexcept {
    SinkConfig config;
    return config.setRate(hz) && config.rate() == hz ? config.word : 0;
}

std::uint64_t rateBits(std::span<const std::uint32_t> rates) noexcept {
    std::uint64_t bits = 0;
    for (const std::uint32_t hz : rates) bits |= rateBits(hz);
    return bits;
}

double frameRate(SinkConfig format) noexcept {
    return static_cast<double>(format.rate()) * format.bitsPerSample() /
           (8.0 * format.bytesPerSample());
}

const char* sampleFormatName(SinkConfig format) noexcept {
    switch (format.word & SinkConfig::formatMask) {
        case SinkConfig::pcm8:
            return "PCM 8";
        case SinkConfig::pcm16:
            return "PCM 16";
        case SinkConfig::pcm24:
            return "PCM 24";
        case SinkConfig::pcm32:
            return "PCM 32";
        case SinkConfig::pcm64:
            return "PCM 64";
        case SinkConfig::float32:
            return "float 32";
        case SinkConfig::float64:
            return "float 64";
        case SinkConfig::dsd1:
        case SinkConfig::dsd4:
            break;
        default:
            return "unknown";
    }
    switch (format.word & 0xffffff00) {
        case SinkConfig::dsdLsbLittle:
            return "DSD LSB little";
        case SinkConfig::dsdLsbBig:
            return "DSD LSB big";
        case SinkConfig::dsdMsbLittle:
            return "DSD MSB little";
        case SinkConfig::dsdMsbBig:
            return "DSD MSB big";
        default:
            return "DSD packed";
    }
}

}  // namespace velmora_target
