#include "driver/StartPlan.h"

std::uint32_t wholeRate(double rate) noexcept {
    return rate >= 1.0 && rate < 4294967296.0 ? static_cast<std::uint32_t>(rate) : 0;
}

std::uint32_t bufferMultiplier(std::uint32_t sampleRate, bool dsd) noexcept {
    const std::uint32_t base = sampleRate % 44100 == 0 ? 44100 : 48000;
    return dsd ? sampleRate / (base * 64) * 2 : sampleRate / base;
}

std::uint32_t hostBufferPayload(VELMORA::SinkConfig format, std::uint32_t bufferBytes,
                                std::uint32_t sampleBytes, std::uint32_t multi) noexcept {
    std::uint32_t bits = format.channels() * format.bitsPerSample() * bufferBytes;
    if (format.isPcm()) {
        bits = sampleBytes != 0 ? bits / sampleBytes : 0;
    } else {
        bits *= 8;
    }
    return (bits >> 3) * multi;
}

TransferCase transferCase(const DriverSettings& settings) noexcept {
    if (settings.targetProfileLimitTime != 0) return TransferCase::profile;
    if (settings.fixAsio) return TransferCase::varAsio;
    if (settings.fragmentOptimize) {
        return settings.flexCycle ? TransferCase::varAuto : TransferCase::fixAuto;
    }
    if (!settings.flexCycle) return TransferCase::fix;
    return settings.randomCycle ? TransferCase::random : TransferCase::var;
}

StartDelay startDelay(std::uint32_t now, std::uint32_t startTime, std::uint32_t setting) noexcept {
    return {(now - startTime) / 1000, setting / 1000 + 10};
}
