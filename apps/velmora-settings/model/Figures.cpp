#include "apps/velmora-settings/model/Figures.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "driver/FormatLadder.h"
#include "sync/ThreadMode.h"
#include "sync/TransferProfile.h"

namespace velmora_settings {
namespace {

using VELMORA::SinkConfig;
using VELMORA::TransferConfig;

std::string fixed(double value, int digits) {
    std::array<char, 64> text;
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

std::string milliseconds(double value) {
    return fixed(value, value < 10 ? 2 : 1) + " ms";
}

SinkConfig pcm(std::uint64_t sample, std::uint32_t rate, std::uint32_t channels) {
    SinkConfig config(sample);
    config.setRate(rate);
    config.setChannels(channels);
    return config;
}

std::int32_t bufferFrames(const DriverSettings& settings) noexcept {
    return settings.asioBufferSize != 0 ? settings.asioBufferSize : settings.asioBufferSizePre;
}

// One buffer of the host's, as AsioVelmora counts it: bytes of one channel.
std::uint32_t hostBufferBytes(const DriverSettings& settings, SinkConfig format) noexcept {
    const auto frames = static_cast<std::uint32_t>(bufferFrames(settings));
    return format.isPcm() ? frames * format.bytesPerSample() : frames * 32 / 8;
}

bool settle(const DriverSettings& s, TransferConfig& transfer) {
    std::uint32_t cycle = s.cycleTime;
    switch (transferCase(s)) {
        case TransferCase::profile:
            transfer.limitCycle = s.targetProfileLimitTime;
            return transfer.configTransferAuto(0);
        case TransferCase::varAsio: {
            const std::uint32_t rate = transfer.config.rate();
            const bool isDsd = !transfer.config.isPcm();
            const std::uint32_t multi = s.bufferMulti ? bufferMultiplier(rate, isDsd) : 1;
            return transfer.trialBuffer(hostBufferPayload(transfer.config,
                                                          hostBufferBytes(s, transfer.config),
                                                          transfer.config.bytesPerSample(), multi));
        }
        case TransferCase::fixAuto:
            return transfer.trialFixAuto(cycle);
        case TransferCase::varAuto:
            return transfer.trialVarAuto(cycle);
        case TransferCase::fix:
            return transfer.trialFix(cycle, s.fragment);
        case TransferCase::random:
            return transfer.trialRandom(s.cycleMinTime, cycle, s.fragment);
        case TransferCase::var:
            return transfer.trialVar(cycle, s.fragment);
    }
    return false;
}

constexpr TransferKind kinds[] = {
    {TransferCase::fix, "Fixed cycle",
     "A burst goes out every cycle, and the amount of sound in it follows the target's clock.",
     true, true, false, false},
    {TransferCase::fixAuto, "Fixed cycle, fewest packets",
     "The same, with as few packets as reach the cycle time.", true, false, false, false},
    {TransferCase::var, "Fixed amount",
     "Every burst carries the same amount, and the cycle follows the target's clock.", true, true,
     false, false},
    {TransferCase::varAuto, "Fixed amount, fewest packets",
     "The same, with as few packets as reach the cycle time.", true, false, false, false},
    {TransferCase::varAsio, "One buffer of the software a burst",
     "The buffer size alone rules; cycle time and packets play no part.", false, false, false,
     false},
    {TransferCase::random, "Cycle drawn at random",
     "Each cycle is drawn between the shortest cycle and the cycle time.", true, true, true, false},
    {TransferCase::profile, "As the target asks",
     "The target says how it wants its bursts, but never more often than the limit; the cycle time "
     "is the limit of the calmer rule that is fallen back to.",
     true, false, false, true},
};

constexpr WaitChoice waits[] = {
    {WaitMode::sleeps, 0, "Sleeps until the burst"},
    {WaitMode::pollsTheEnd, VELMORA::NOSHORTSLEEP, "Stays awake for the last 0.1 ms"},
    {WaitMode::neverSleepsOnLarge, VELMORA::NOSLEEP4CORE, "Never sleeps, on more than two cores"},
    {WaitMode::neverSleeps, VELMORA::NOSLEEPFORCE, "Never sleeps, on any computer"},
};
constexpr std::uint32_t waitBits =
    VELMORA::NOSHORTSLEEP | VELMORA::NOSLEEP4CORE | VELMORA::NOSLEEPFORCE;

std::string pollCost(std::uint32_t cycle) {
    constexpr double polled = 100;  // µs
    const double share = cycle == 0 ? 100.0 : std::min(100.0, polled * 100.0 / cycle);
    return fixed(share, share < 10 ? 1 : 0) + " % of one core";
}

}  // namespace

Delay delayAt(const DriverSettings& settings, std::uint32_t rate) noexcept {
    const double buffer = bufferFrames(settings) * 1000.0 / rate;
    const std::uint32_t multi = settings.bufferMulti ? bufferMultiplier(rate, /*dsd=*/false) : 1;
    Delay delay;
    delay.oneBuffer = buffer;
    delay.ring = buffer * settings.syncBufferCount * multi;
    delay.whole = delay.ring + buffer + settings.latencyBuffer / 1000.0;
    return delay;
}

std::string delayText(const DriverSettings& settings, std::uint32_t rate) {
    const Delay delay = delayAt(settings, rate);
    std::string text = "At " + fixed(rate / 1000.0, 1) + " kHz: " + milliseconds(delay.oneBuffer) +
                       " a buffer, " + milliseconds(delay.ring) + " in the ring, " +
                       milliseconds(delay.whole) + " in all";
    if (settings.latencyBuffer < 100) text += ", besides what the target holds";
    return text;
}

std::span<const StreamFormat> streamFormats() {
    static const std::vector<StreamFormat> formats = [] {
        using S = SinkConfig;
        std::vector<StreamFormat> made = {
            {"44.1 kHz, 32 bits, 2 channels", pcm(S::pcm32, 44100, 2)},
            {"44.1 kHz, 16 bits, 2 channels", pcm(S::pcm16, 44100, 2)},
            {"48 kHz, 24 bits, 2 channels", pcm(S::pcm24, 48000, 2)},
            {"96 kHz, 24 bits, 2 channels", pcm(S::pcm24, 96000, 2)},
            {"96 kHz, 32 bits, 2 channels", pcm(S::pcm32, 96000, 2)},
            {"192 kHz, 32 bits, 2 channels", pcm(S::pcm32, 192000, 2)},
            {"192 kHz, 32 bits, 8 channels", pcm(S::pcm32, 192000, 8)},
            {"384 kHz, 32 bits, 2 channels", pcm(S::pcm32, 384000, 2)},
            {"768 kHz, 32 bits, 2 channels", pcm(S::pcm32, 768000, 2)},
            {"DSD64, 2 channels", pcm(S::dsdMsbBig, 2822400, 2)},
            {"DSD128, 2 channels", pcm(S::dsdMsbBig, 5644800, 2)},
            {"DSD256, 2 channels", pcm(S::dsdMsbBig, 11289600, 2)},
            {"DSD512, 2 channels", pcm(S::dsdMsbBig, 22579200, 2)},
        };
        return made;
    }();
    return formats;
}

TransferFigures transferFigures(const DriverSettings& settings, SinkConfig format) {
    TransferConfig transfer;
    transfer.config = format;
    transfer.PackDataSize = plainPacketBytes;
    transfer.PackDataCount = plainPacketCount;
    TransferFigures figures;
    if (!settle(settings, transfer)) return figures;
    figures.isPossible = true;
    figures.cycle = transfer.cycle;
    figures.cycleMin = transfer.mode == VELMORA::modeRandom ? transfer.cycleMin : 0;
    figures.packets = transfer.packetCount;
    figures.bytes = transfer.packetBytes;
    figures.bytesPerCycle = static_cast<double>(transfer.framesQ14) / 16384.0 *
                            transfer.frameBytes() * transfer.packetCount;
    figures.packetsPerSecond = transfer.packetCount * 1e6 / transfer.cycle;
    return figures;
}

std::string transferText(const DriverSettings& settings, SinkConfig format) {
    const TransferFigures figures = transferFigures(settings, format);
    if (!figures.isPossible) {
        return "Nothing plays this format with these settings: no cycle fits; try a longer or a "
               "shorter one, or more packets.";
    }
    std::string text = "A cycle of " + std::to_string(figures.cycle) + " µs";
    if (figures.cycleMin != 0) {
        text = "Cycles of " + std::to_string(figures.cycleMin) + " to " +
               std::to_string(figures.cycle) + " µs";
    }
    text += ", " + std::to_string(figures.packets) +
            (figures.packets == 1 ? " packet of up to " : " packets of up to ") +
            std::to_string(figures.bytes) + " bytes; " + fixed(figures.bytesPerCycle, 0) +
            " bytes a cycle, " + fixed(figures.packetsPerSecond, 0) + " packets a second.";
    const TransferCase kind = transferCase(settings);
    if (kind == TransferCase::profile) {
        text += " A target that asks for another profile gets that.";
    } else if (kind != TransferCase::varAsio && figures.cycle != settings.cycleTime) {
        text += " The cycle time that is set does not fit, so another one holds.";
    }
    return text;
}

std::span<const TransferKind> transferKinds() noexcept {
    return kinds;
}

const TransferKind& transferKindOf(const DriverSettings& settings) noexcept {
    const TransferCase kind = transferCase(settings);
    return *std::find_if(std::begin(kinds), std::end(kinds),
                         [kind](const TransferKind& row) { return row.kind == kind; });
}

std::span<const WaitChoice> waitChoices() noexcept {
    return waits;
}

WaitMode waitModeOf(std::uint32_t threadMode) noexcept {
    if ((threadMode & VELMORA::NOSLEEPFORCE) != 0) return WaitMode::neverSleeps;
    if ((threadMode & VELMORA::NOSLEEP4CORE) != 0) return WaitMode::neverSleepsOnLarge;
    return (threadMode & VELMORA::NOSHORTSLEEP) != 0 ? WaitMode::pollsTheEnd : WaitMode::sleeps;
}

std::uint32_t withWaitMode(std::uint32_t threadMode, WaitMode mode) noexcept {
    if (waitModeOf(threadMode) == mode) return threadMode;
    const auto row = std::find_if(std::begin(waits), std::end(waits),
                                  [mode](const WaitChoice& choice) { return choice.mode == mode; });
    return (threadMode & ~waitBits) | row->bits;
}

std::string waitText(const DriverSettings& settings, std::int32_t cores, std::uint32_t cycle) {
    std::uint32_t mode = settings.threadMode;
    constexpr std::uint32_t pollsAlways = VELMORA::NOSLEEP4CORE | VELMORA::NOSLEEPFORCE;
    std::string text;
    if ((mode & pollsAlways) != 0 && settings.targetProfileLimitTime != 0 && cycle >= 1000) {
        mode &= ~pollsAlways;
        text = "Not in force where the target's cycle is a millisecond or longer. ";
    }
    const std::uint32_t fitted =
        VELMORA::fitToMachine(mode, cores, /*latency=*/UINT16_MAX, cycle).threadMode;
    if ((mode & ~fitted & VELMORA::NOSLEEP4CORE) != 0) {
        text = "Not in force on this computer of " + std::to_string(cores) +
               (cores == 1 ? " core. " : " cores. ");
    }
    switch (waitModeOf(fitted)) {
        case WaitMode::sleeps:
            return text + "Costs next to nothing; a burst may go out up to a millisecond late.";
        case WaitMode::pollsTheEnd:
            return text + "Punctual; costs about " + pollCost(cycle) + " and some power.";
        case WaitMode::neverSleepsOnLarge:
        case WaitMode::neverSleeps:
            return text + "The most punctual; costs one whole core while sound plays.";
    }
    return text;
}

}  // namespace velmora_settings
