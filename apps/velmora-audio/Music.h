// Music of our own to play: plucked strings over a slow bass, every channel its own, full scale.
//
// It is what a test signal should be and a sine is not: every bit of every sample is alive, no two
// channels and no two seconds are alike, and the same arguments give the same samples everywhere.
#pragma once

#include <cstdint>
#include <vector>

namespace velmora_audio {

// One vector a channel, `frames` samples each, in -1 .. 1; the loudest sample of each channel is 1
// or -1.
std::vector<std::vector<double>> makeMusic(std::uint32_t rate, std::uint32_t channels,
                                           std::uint64_t frames, std::uint32_t seed);

// The same as one-bit samples: a second-order sigma-delta modulator at `ratio` times the rate of
// the input (held between its samples), eight samples a byte, the oldest in bit 0.
std::vector<std::uint8_t> modulate(const std::vector<double>& samples, std::uint32_t ratio);

}  // namespace velmora_audio
