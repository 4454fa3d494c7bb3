#include "driver/Interleave.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

// One sample. All sizes are constants of the instance, so that this is a load and a store.
template <std::size_t source, std::size_t destination>
inline void put(std::uint8_t* out, const std::uint8_t* in) noexcept {
    constexpr std::size_t kept = std::min(source, destination);
    constexpr std::size_t zeros = destination - kept;  // below the value
    constexpr std::size_t cut = source - kept;         // of the value
    if constexpr (zeros != 0) std::memset(out, 0, zeros);
    std::memcpy(out + zeros, in + cut, kept);
}

// Some channels side by side: their number is a constant, so that the inner loop is unrolled, and
// of two channels alone, whose stores have no gap, the compiler makes vectors.
template <std::size_t source, std::size_t destination, std::size_t group>
inline void interleaveGroup(std::uint8_t* __restrict to, const std::uint8_t* const* from,
                            std::size_t stride, std::size_t samples) noexcept {
    const std::uint8_t* in[group];
    std::copy_n(from, group, in);
    for (std::size_t i = 0; i < samples; ++i) {
        for (std::size_t c = 0; c < group; ++c) {
            put<source, destination>(to + i * stride + c * destination, in[c] + i * source);
        }
    }
}

// The loop of every row: eight channels at a time, then four, two and one.
template <std::size_t source, std::size_t destination>
void interleave(std::uint8_t* to, const std::uint8_t* const* from, std::size_t channels,
                std::size_t samples) noexcept {
    const std::size_t stride = destination * channels;
    if (channels == 2) {
        return interleaveGroup<source, destination, 2>(to, from, 2 * destination, samples);
    }
    std::size_t c = 0;
    const auto walk = [&]<std::size_t group>(std::integral_constant<std::size_t, group>) {
        for (; channels - c >= group; c += group) {
            interleaveGroup<source, destination, group>(to + c * destination, from + c, stride,
                                                        samples);
        }
    };
    walk(std::integral_constant<std::size_t, 8>());
    walk(std::integral_constant<std::size_t, 4>());
    walk(std::integral_constant<std::size_t, 2>());
    walk(std::integral_constant<std::size_t, 1>());
}

template <std::size_t source, std::size_t destination>
constexpr Interleave row{source, destination, &interleave<source, destination>};

}  // namespace

const Interleave& chooseInterleave(const InterleaveFormat& format) noexcept {
    using VELMORA::SinkConfig;
    if (format.dsdMode) return format.hostFormat.bytesPerSample() == 4 ? row<4, 4> : row<1, 1>;
    switch (format.sampleBytes) {
        case 8:
            return row<8, 8>;
        case 4:
            if (format.pcmConvertS32) {
                switch (format.pcmFormatBit) {
                    case SinkConfig::pcm64:
                        return row<4, 8>;
                    case SinkConfig::pcm24:
                        return row<4, 3>;
                    case SinkConfig::pcm16:
                        return row<4, 2>;
                    default:
                        break;
                }
            }
            return row<4, 4>;
        case 3:
            return row<3, 3>;
        case 2:
            return row<2, 2>;
        default:
            return row<1, 1>;
    }
}
