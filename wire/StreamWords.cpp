// The words of the stream that are worked out rather than copied: feedback, class word, probe.
#include <algorithm>

#include "wire/StreamMessage.h"

namespace VELMORA::wire {

void fillProbe(std::span<std::uint8_t> body) noexcept {
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<std::uint8_t>(i + 122);
}

std::uint16_t probeSum(ConstBytes body) noexcept {
    std::uint16_t sum = 0;
    for (const std::uint8_t byte : body) sum = static_cast<std::uint16_t>(sum + byte);
    return sum;
}

std::uint64_t classWord(SinkConfig format, std::uint16_t latency) noexcept {
    struct Class {
        std::uint64_t cleared, set;
    };
    constexpr Class floatingPoint{0xfd00, 0x200}, pcmInteger{0xfe00, 0x100}, dsd{0xf700, 0x800},
        none{0xfb00, 0x400};
    const std::uint64_t sample = format.word & SinkConfig::formatMask;
    const bool isFloat = sample == SinkConfig::float32 || sample == SinkConfig::float64;
    const bool isDsd = sample == SinkConfig::dsd1 || sample == SinkConfig::dsd4;
    const Class& to = format.isPcm() ? (isFloat ? floatingPoint : pcmInteger) : isDsd ? dsd : none;

    const std::uint64_t classed = (format.word & ~to.cleared) | to.set;
    return (classed & ~0xffff0000ull) | std::uint64_t{latency} << 16;
}

FeedbackValue decodeFeedback(const INFO_ANS& m) noexcept {
    // Conversions to 16 bits wrap on purpose: the words of the wire are read as they stand.
    const int word = m.feedback;
    if ((word & 0x8000) != 0) {
        const int low = word & 0x7fff;
        return {2, static_cast<std::int16_t>(low | (low & 0x4000) << 1)};
    }
    if (word != 0) return {1, static_cast<std::int16_t>(2 * (word - 8192))};
    if (m.fillTarget == 0) return {0, 0};
    // At most 65535 x 16384 either way, which is below 2^30; the quotient may wrap.
    const std::int32_t off = std::int32_t{m.fill} - m.fillTarget;
    return {3, static_cast<std::int16_t>(off * 16384 / m.fillTarget)};
}

INFO_ANS encodeFeedback(int encoding, std::int16_t value, std::uint16_t fill,
                        std::uint16_t fillTarget) noexcept {
    INFO_ANS m;
    switch (encoding) {
        case 1: {
            const int clamped = std::max<int>(value, -16382);  // its word is 1; 0 says other things
            m.feedback = static_cast<std::uint16_t>(clamped / 2 + 8192);
            break;
        }
        case 2: {
            const int clamped = std::clamp<int>(value, -16384, 16383);
            m.feedback = static_cast<std::uint16_t>(0x8000 | (clamped & 0x7fff));
            break;
        }
        case 3:
            m.fill = fill;
            m.fillTarget = fillTarget;
            break;
        default:
            break;
    }
    return m;
}

}  // namespace VELMORA::wire
