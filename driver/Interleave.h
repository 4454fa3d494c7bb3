// From the host's buffers, one a channel, into a block of the stream, frame by frame: nine loops,
// one for each pair of formats, chosen once before the stream starts.
//
// Sample i of channel c goes to place i x channels + c. Narrowing keeps the upper bytes, widening
// leaves the lower ones zero; nothing is rounded or dithered. All formats are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/SinkConfig.h"

struct Interleave {
    std::size_t sourceBytes;       // of a sample in the host's buffer
    std::size_t destinationBytes;  // of a sample in the block
    void (*run)(std::uint8_t* to, const std::uint8_t* const* from, std::size_t channels,
                std::size_t samples) noexcept;  // samples: of each channel
};

// What the choice looks at.
struct InterleaveFormat {
    std::int32_t sampleBytes = 0;
    bool pcmConvertS32 = false;
    std::uint64_t pcmFormatBit = 0;
    bool dsdMode = false;
    VELMORA::SinkConfig hostFormat{};
};

// Answers for any format: a width that no host buffer has is copied byte by byte.
const Interleave& chooseInterleave(const InterleaveFormat& format) noexcept;
