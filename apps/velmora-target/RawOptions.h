// What the options say before they become settings.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "apps/velmora-target/Options.h"

namespace velmora_target {

struct RawOptions {
    std::vector<std::string> sinks, pcm{"16", "24", "32", "f32"}, rates,
        dsdRates{"64", "128", "256", "512"}, silent, refused, lost, lostAnswers, misbehave,
        transferChannels;
    std::vector<std::uint32_t> channels{1, 2, 4, 6, 8};
    std::string product = "KORVENTE", dsd = "msb", dsdWord = "big", phase = "normal";
    std::vector<std::uint32_t> profile{1000, 5000, 0x0c};
    std::uint32_t firstPort = 19650, streamPortOffset = 0, sinkVersion = 1;
    double latency = 20000, hwLatency = 0, bufferMs = 0, alsaBufferMs = 40, alsaPeriodMs = 0;
    std::vector<double> ask{0, 400};  // ms
    std::vector<double> clockDrift;   // ppm, seconds
    std::uint64_t pcmMask = 0, dsdLsbMask = 0, dsdMsbMask = 0;
};

// Throws CLI::ValidationError with the words for whoever typed what cannot be.
void finish(const CLI::App& app, const RawOptions& raw, Options& options);

}  // namespace velmora_target
