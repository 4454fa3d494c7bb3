#include "driver/Interleave.h"

#include <cstring>

namespace {

// The loop of every row. All sizes are constants of the instance, so that each memcpy is a load and
// a store. Walking channel by channel reads the host's buffers straight through.
template <std::size_t source, std::size_t destination>
void interleave(std::uint8_t* to, const std::uint8_t* const* from, std::size_t channels,
                std::size_t samples) noexcept {
    constexpr std::size_t kept = source < destination ? source : destination;
    constexpr std::size_t zeros = destination - kept;  // below the value
    constexpr std::size_t cut = source - kept;         // of the value
    const std::size_t stride = destination * channels;
    for (std::size_t c = 0; c < channels; ++c) {
        const std::uint8_t* in = from[c] + cut;
        std::uint8_t* out = to + c * destination;
        for (std::size_t i = 0; i < samples; ++i) {
            if constexpr (zeros != 0) std::memset(out, 0, zeros);
            std::memcpy(out + zeros, in, kept);
            in += source;
            out += stride;
        }
    }
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
