// What start works out before it asks the engine for anything: values in, values out.
#pragma once

#include <cstdint>

#include "driver/Settings.h"
#include "driver/SinkConfig.h"

// Rates above it are DSD, whatever the host has said.
constexpr std::uint32_t highestPcmRate = 1536000;

// A rate as the host gives it, cut to whole Hz. 0, which no format carries, for what is no rate:
// not a number, negative, or beyond 32 bits.
std::uint32_t wholeRate(double rate) noexcept;

// By how much the ring grows with the rate (ASIOBufferMulti): 1 for the base rates 44100 and 48000,
// 2 for their doubles and for DSD64, and so on.
std::uint32_t bufferMultiplier(std::uint32_t sampleRate, bool dsd) noexcept;

// The payload that carries one buffer of the host's, `multi` times. `bufferBytes` is one half of
// one channel's buffer, in samples of `sampleBytes`; `format` is what becomes of it in the ring.
// All in 32 bits.
std::uint32_t hostBufferPayload(VELMORA::SinkConfig format, std::uint32_t bufferBytes,
                                std::uint32_t sampleBytes, std::uint32_t multi) noexcept;

// How cycle time and packets are settled. A case hides those below it.
enum class TransferCase { profile, varAsio, fixAuto, varAuto, fix, random, var };
TransferCase transferCase(const DriverSettings& settings) noexcept;

// How long the wait thread still sleeps before it plays.
struct StartDelay {
    std::uint32_t elapsed = 0;  // ms since start ended
    std::uint32_t wait = 0;     // ms that must have passed: the setting, and 10
    std::uint32_t sleep() const noexcept { return elapsed >= wait ? 0 : wait - elapsed; }
};
StartDelay startDelay(std::uint32_t now, std::uint32_t startTime,
                      std::uint32_t setting) noexcept;  // all in µs
