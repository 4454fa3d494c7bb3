// Which formats a sink takes: three masks in the layout of the format word.
//
// A mask is a union: every format whose bits are all in it is taken. A sink that takes 44100 Hz and
// 96000 Hz therefore takes 88200 Hz and 48000 Hz as well.
#pragma once

#include <cstdint>
#include <span>

#include "driver/SinkConfig.h"

namespace velmora_target {

struct FormatMasks {
    std::uint64_t pcm = 0;     // bits 0..15 and rates
    std::uint64_t dsdLsb = 0;  // bits 0..31 and rates, bit 20 among them
    std::uint64_t dsdMsb = 0;  // the same with bit 21

    bool hasAny() const noexcept { return (pcm | dsdLsb | dsdMsb) != 0; }
    // Which families there are at all; a host asks for it first.
    std::uint64_t summary() const noexcept;
    // The answer to a selector: the summary to 0, else the mask of the family that it names; 0 for
    // a family that the sink lacks.
    std::uint64_t answer(std::uint64_t selector) const noexcept;
    // A valid format that has a rate and lies in the mask of its family.
    bool takes(VELMORA::SinkConfig format) const noexcept;
};

// The bits of one channel count or one rate; 0 for what the format word cannot say.
std::uint64_t channelBits(std::uint32_t channels) noexcept;
std::uint64_t rateBits(std::uint32_t hz) noexcept;
std::uint64_t rateBits(std::span<const std::uint32_t> rates) noexcept;

// Frames per second: a frame is one sample of every channel, in DSD one word of every channel.
double frameRate(VELMORA::SinkConfig format) noexcept;

// "PCM 24", "float 32", "DSD MSB big" ...
const char* sampleFormatName(VELMORA::SinkConfig format) noexcept;

}  // namespace velmora_target
