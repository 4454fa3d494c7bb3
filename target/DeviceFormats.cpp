#include "target/DeviceFormats.h"

#include <algorithm>
#include <array>
#include <vector>

namespace velmora_target {

using VELMORA::SinkConfig;
using VELMORA::wire::ConstBytes;

namespace {

// Ways for a sample, the best first for each. `significant` bytes of the `bytes` count: a narrower
// sample fills the highest of them, above them stands its sign.
struct PcmWay {
    std::uint64_t sample;
    PcmFormat format;
    std::uint32_t bytes, significant;
};
constexpr PcmWay pcmWays[] = {
    {SinkConfig::pcm8, PcmFormat::s8, 1, 1},
    {SinkConfig::pcm8, PcmFormat::s16, 2, 2},
    {SinkConfig::pcm8, PcmFormat::s24in3, 3, 3},
    {SinkConfig::pcm8, PcmFormat::s24in4, 4, 3},
    {SinkConfig::pcm8, PcmFormat::s32, 4, 4},
    {SinkConfig::pcm16, PcmFormat::s16, 2, 2},
    {SinkConfig::pcm16, PcmFormat::s24in3, 3, 3},
    {SinkConfig::pcm16, PcmFormat::s24in4, 4, 3},
    {SinkConfig::pcm16, PcmFormat::s32, 4, 4},
    {SinkConfig::pcm24, PcmFormat::s24in3, 3, 3},
    {SinkConfig::pcm24, PcmFormat::s24in4, 4, 3},
    {SinkConfig::pcm24, PcmFormat::s32, 4, 4},
    {SinkConfig::pcm32, PcmFormat::s32, 4, 4},
    {SinkConfig::float32, PcmFormat::float32, 4, 4},
    {SinkConfig::float64, PcmFormat::float64, 8, 8},
};

struct DsdWay {
    PcmFormat format;
    std::uint32_t bytes;
    bool oldestByteFirst;
};
constexpr DsdWay dsdWays[] = {
    {PcmFormat::dsd32Big, 4, true}, {PcmFormat::dsd32Little, 4, false},
    {PcmFormat::dsd16Big, 2, true}, {PcmFormat::dsd16Little, 2, false},
    {PcmFormat::dsd8, 1, true},
};
constexpr std::uint32_t streamWordBytes = 4;
constexpr std::uint8_t dsdSilence = 0x69;  // as many ones as zeros, and no tone that anybody hears

const PcmWay& pcmWay(SinkConfig format, PcmFormat device) {
    return *std::find_if(std::begin(pcmWays), std::end(pcmWays), [&](const PcmWay& way) {
        return way.sample == (format.word & SinkConfig::formatMask) && way.format == device;
    });
}

const DsdWay& dsdWay(PcmFormat device) {
    return *std::find_if(std::begin(dsdWays), std::end(dsdWays),
                         [&](const DsdWay& way) { return way.format == device; });
}

constexpr std::uint8_t turned(std::uint8_t v) noexcept {
    unsigned b = v;
    b = (b & 0x0f) << 4 | (b & 0xf0) >> 4;
    b = (b & 0x33) << 2 | (b & 0xcc) >> 2;
    b = (b & 0x55) << 1 | (b & 0xaa) >> 1;
    return static_cast<std::uint8_t>(b);
}

void convertPcm(const PcmWay& way, std::uint32_t sampleBytes, ConstBytes in, std::uint8_t* out) {
    const std::uint32_t below = way.significant - sampleBytes;
    const std::uint32_t above = way.bytes - way.significant;
    if (below + above == 0) {
        std::copy(in.begin(), in.end(), out);
        return;
    }
    for (std::size_t at = 0; at < in.size(); at += sampleBytes) {
        const std::uint8_t* const sample = in.data() + at;
        out = std::fill_n(out, below, std::uint8_t{0});
        out = std::copy_n(sample, sampleBytes, out);
        const bool negative = (sample[sampleBytes - 1] & 0x80) != 0;
        out = std::fill_n(out, above, static_cast<std::uint8_t>(negative ? 0xff : 0));
    }
}

// Eight samples at a time, in the order in which they were made: from their place in the stream's
// word to that in the device's.
void convertDsd(SinkConfig format, const DsdWay& way, ConstBytes in, std::uint8_t* out) {
    const std::size_t channels = format.channels(), frame = streamWordBytes * channels;
    const bool oldestIsLsb = format.has(SinkConfig::dsdLsb);
    const bool oldestByteFirst = oldestIsLsb == format.has(SinkConfig::dsdLittle);
    for (std::size_t at = 0; at < in.size(); at += frame) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            const std::uint8_t* const word = in.data() + at + channel * streamWordBytes;
            for (std::size_t k = 0; k < streamWordBytes; ++k) {
                const std::uint8_t oldest = word[oldestByteFirst ? k : streamWordBytes - 1 - k];
                const std::size_t deviceFrame = k / way.bytes, inWord = k % way.bytes;
                const std::size_t place = way.oldestByteFirst ? inWord : way.bytes - 1 - inWord;
                out[at + (deviceFrame * channels + channel) * way.bytes + place] =
                    oldestIsLsb ? turned(oldest) : oldest;
            }
        }
    }
}

// The fields of a format word: a format has one bit of each that its family has at all.
constexpr std::array<std::uint64_t, 6> fields{
    SinkConfig::channelMask,
    SinkConfig::formatMask,
    SinkConfig::dsdLsb | SinkConfig::dsdMsb,
    SinkConfig::dsdLittle | SinkConfig::dsdBig,
    SinkConfig::family8000 | SinkConfig::family44100 | SinkConfig::family48000,
    0xfff8'0000'0000,  // the multipliers
};

constexpr std::uint64_t lowestOf(std::uint64_t bits) noexcept {
    return bits & (~bits + 1);
}

std::vector<std::uint64_t> wordsIn(std::uint64_t mask) {
    std::vector<std::uint64_t> words{mask & SinkConfig::dsdClassMask};
    for (const std::uint64_t field : fields) {
        if ((mask & field) == 0) continue;
        std::vector<std::uint64_t> longer;
        for (std::uint64_t left = mask & field; left != 0; left &= left - 1) {
            for (const std::uint64_t word : words) longer.push_back(word | lowestOf(left));
        }
        words = std::move(longer);
    }
    return words;
}

using Takes = std::function<bool(SinkConfig)>;

bool takesWord(std::uint64_t word, const Takes& takes) {
    const SinkConfig format(word);
    return format.isValid() && format.rate() != 0 && takes(format);
}

// Of one channel count.
std::uint64_t reduced(std::uint64_t mask, const Takes& takes) {
    std::vector<std::uint64_t> taken, refused;
    for (const std::uint64_t word : wordsIn(mask)) {
        (takesWord(word, takes) ? taken : refused).push_back(word);
    }
    if (taken.empty()) return 0;
    // One bit after the other: the one that has the largest share of refused formats, and of equals
    // the highest, which is the highest rate. One that all the taken ones have is never it, so that
    // something is left at the end.
    while (!refused.empty()) {
        std::uint64_t worst = 0;
        double worstShare = 0;
        for (std::uint64_t left = mask; left != 0; left &= left - 1) {
            const std::uint64_t bit = lowestOf(left);
            const auto has = [bit](std::uint64_t word) { return (word & bit) != 0; };
            const auto no = std::count_if(refused.begin(), refused.end(), has);
            const auto yes = std::count_if(taken.begin(), taken.end(), has);
            if (no == 0 || static_cast<std::size_t>(yes) == taken.size()) continue;
            const double share = static_cast<double>(no) / static_cast<double>(no + yes);
            if (share < worstShare) continue;
            worst = bit;
            worstShare = share;
        }
        mask &= ~worst;
        const auto hasWorst = [worst](std::uint64_t word) { return (word & worst) != 0; };
        std::erase_if(refused, hasWorst);
        std::erase_if(taken, hasWorst);
    }
    return mask;
}

// Most music has two channels: what they can have comes first, and other counts are told where they
// can have all of that.
constexpr std::uint32_t channelCounts[] = {2, 1, 4, 6, 8, 16};

std::uint64_t maskTaken(std::uint64_t mask, const Takes& takes) {
    const std::uint64_t rest = mask & ~SinkConfig::channelMask;
    std::uint64_t taken = 0;
    for (const std::uint32_t count : channelCounts) {
        const std::uint64_t bit = mask & channelBits(count);
        if (bit == 0) continue;
        if (taken == 0) {
            taken = reduced(rest | bit, takes);
            continue;
        }
        const auto words = wordsIn((taken & ~SinkConfig::channelMask) | bit);
        const bool all = std::all_of(words.begin(), words.end(),
                                     [&](std::uint64_t word) { return takesWord(word, takes); });
        if (all) taken |= bit;
    }
    return taken;
}

}  // namespace

std::optional<DevicePlan> planFor(SinkConfig format,
                                  const std::function<bool(const PcmShape&)>& takes) {
    const std::uint64_t sample = format.word & SinkConfig::formatMask;
    const std::uint32_t channels = format.channels(), rate = format.rate();
    if (sample == SinkConfig::dsd1) {
        for (const DsdWay& way : dsdWays) {
            const PcmShape shape{way.format, channels, rate / (8 * way.bytes)};
            if (takes(shape)) {
                return DevicePlan{shape, streamWordBytes / way.bytes, way.bytes * channels,
                                  dsdSilence};
            }
        }
        return std::nullopt;
    }
    for (const PcmWay& way : pcmWays) {
        const PcmShape shape{way.format, channels, rate};
        if (way.sample == sample && takes(shape)) {
            return DevicePlan{shape, 1, way.bytes * channels, 0};
        }
    }
    return std::nullopt;
}

void convert(SinkConfig format, const DevicePlan& plan, ConstBytes frames, ZENNO::Bytes& out) {
    const std::size_t count = frames.size() / format.frameBytes();
    const ConstBytes whole = frames.first(count * format.frameBytes());
    const std::size_t before = out.size();
    out.resize(before + count * plan.framesEach * plan.frameBytes);
    std::uint8_t* const to = out.data() + before;
    if (format.isDsd()) {
        convertDsd(format, dsdWay(plan.shape.format), whole, to);
    } else {
        convertPcm(pcmWay(format, plan.shape.format), format.bytesPerSample(), whole, to);
    }
}

FormatMasks formatsTaken(const FormatMasks& allowed, const std::function<bool(SinkConfig)>& takes) {
    return {maskTaken(allowed.pcm, takes), maskTaken(allowed.dsdLsb, takes),
            maskTaken(allowed.dsdMsb, takes)};
}

}  // namespace velmora_target
