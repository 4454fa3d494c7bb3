// What settings come to: the delay of the buffers, and how the stream is cut into cycles, packets
// and bytes, worked out by the driver's own code.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "driver/Settings.h"
#include "driver/SinkConfig.h"
#include "driver/StartPlan.h"

namespace velmora_settings {

// ---- buffers ----

struct Delay {
    double oneBuffer = 0;  // ms
    double ring = 0;       // ms that the driver keeps filled ahead
    double whole = 0;  // ms: the ring, the buffer that the software fills meanwhile, the target's
};

// At a PCM rate, with the fixed size or the recommended one.
Delay delayAt(const DriverSettings& settings, std::uint32_t rate) noexcept;
// "At 44.1 kHz: 11.6 ms a buffer, ..."
std::string delayText(const DriverSettings& settings, std::uint32_t rate);

// ---- transfer ----

struct StreamFormat {
    std::string_view label;
    VELMORA::SinkConfig config;
};
// To choose from; the first is where one begins.
std::span<const StreamFormat> streamFormats();

// What a target has that takes plain Ethernet packets and tells nothing else.
inline constexpr std::uint16_t plainPacketBytes = 1428, plainPacketCount = 10;

struct TransferFigures {
    bool isPossible = false;
    std::uint32_t cycle = 0;     // µs
    std::uint32_t cycleMin = 0;  // µs; 0 but for random cycles
    std::uint32_t packets = 0;   // of a cycle
    std::uint32_t bytes = 0;     // of a packet, at most
    double bytesPerCycle = 0;    // on the average
    double packetsPerSecond = 0;
};
TransferFigures transferFigures(const DriverSettings& settings, VELMORA::SinkConfig format);
std::string transferText(const DriverSettings& settings, VELMORA::SinkConfig format);

// ---- kinds of transfer, by the driver's own cases ----

struct TransferKind {
    TransferCase kind;
    std::string_view name;   // plain
    std::string_view about;  // one sentence
    // Which of the fields play a part.
    bool usesCycle, usesPackets, usesShortest, usesLimit;
};
std::span<const TransferKind> transferKinds() noexcept;
const TransferKind& transferKindOf(const DriverSettings& settings) noexcept;

// ---- how the sending thread waits ----

enum class WaitMode { sleeps, pollsTheEnd, neverSleepsOnLarge, neverSleeps };

struct WaitChoice {
    WaitMode mode;
    std::uint32_t bits;     // of ThredMode
    std::string_view name;  // plain
};
std::span<const WaitChoice> waitChoices() noexcept;
WaitMode waitModeOf(std::uint32_t threadMode) noexcept;
std::uint32_t withWaitMode(std::uint32_t threadMode, WaitMode mode) noexcept;
// What it costs on a machine of so many cores, with this cycle; and where the driver will not do
// it.
std::string waitText(const DriverSettings& settings, std::int32_t cores, std::uint32_t cycle);

}  // namespace velmora_settings
