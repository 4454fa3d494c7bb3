// The stream that most tests of the transfer arithmetic run on.
#pragma once

#include <gtest/gtest.h>

#include "sync/TransferProfile.h"

namespace velmora_test {

using namespace VELMORA;

inline SinkConfig format(std::uint64_t sample, std::uint32_t rate, std::uint32_t channels) {
    SinkConfig config(sample);
    EXPECT_TRUE(config.setRate(rate));
    EXPECT_TRUE(config.setChannels(channels));
    return config;
}

// 44100 Hz, two channels of 32 bits: 352800 bytes a second, frames of 8.
inline TransferConfig stereo32(std::uint16_t packDataSize = 1428,
                               std::uint16_t packDataCount = 10) {
    TransferConfig transfer;
    transfer.config = format(SinkConfig::pcm32, 44100, 2);
    transfer.PackDataSize = packDataSize;
    transfer.PackDataCount = packDataCount;
    transfer.limitCycle = 400;
    return transfer;
}

inline TransferProfile row(std::uint32_t cycle, std::uint32_t fixedBytes, std::uint32_t packetBytes,
                           std::uint32_t framesQ14, std::uint16_t packetCount, std::uint32_t mode) {
    return {cycle, fixedBytes, packetBytes, framesQ14, packetCount, 0, mode};
}

}  // namespace velmora_test
