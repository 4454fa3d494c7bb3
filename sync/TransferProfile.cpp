#include "sync/TransferProfile.h"

#include <cmath>
#include <limits>

#include "base/Clock.h"

// The arithmetic is single precision in exactly this order, division first: targets in the field
// were tuned against the rows that it gives.

namespace VELMORA {
namespace {

constexpr std::uint32_t cycleStep = 50;  // µs

// Rounds up; what no 63 bits hold becomes more than any limit allows.
std::uint64_t roundUp(float value) noexcept {
    const float up = std::ceil(value);
    return up < 0x1p63f ? static_cast<std::uint64_t>(up) : std::uint64_t{1} << 63;
}

std::uint64_t roundUpTo(std::uint64_t bytes, std::uint32_t frame) noexcept {
    return (bytes + frame - 1) / frame * frame;
}

// Bytes that `cycle` µs of the stream have.
float bytesOf(std::uint32_t bytesPerSecond, std::uint32_t cycle) noexcept {
    const float cyclesPerSecond = 1000000.0f / static_cast<float>(cycle);
    return static_cast<float>(bytesPerSecond) / cyclesPerSecond;
}

// How long `bytes` last, in µs.
std::uint64_t cycleOf(std::uint32_t bytesPerSecond, std::uint64_t bytes) noexcept {
    const float cyclesPerSecond = static_cast<float>(bytesPerSecond) / static_cast<float>(bytes);
    return roundUp(1000000.0f / cyclesPerSecond);
}

std::uint64_t burstLimit(const TransferConfig& config, std::uint16_t count) noexcept {
    const bool bound = count != 0 && count < config.PackDataCount;
    return std::uint64_t{config.PackDataSize} * (bound ? count : config.PackDataCount);
}

// What a Fix cycle is to have room for: 3 percent more than it carries, in whole frames.
std::uint64_t fixBytes(std::uint32_t bytesPerSecond, std::uint32_t frame,
                       std::uint32_t cycle) noexcept {
    return roundUpTo(roundUp(bytesOf(bytesPerSecond, cycle) * 1.03f), frame);
}

// Lowers `cycle` in steps until `fits(cycle)`; false when it falls below 1 µs first, and then it is
// left there. What fits goes on fitting as the cycle gets shorter, so the number of steps is found
// by halving: a cycle of many seconds has a great many of them.
template <class Fits>
bool stepDown(std::uint32_t& cycle, Fits fits) {
    // Cycles are compared with wrap: more than half a turn counts as below 1.
    const std::uint32_t most =
        ZENNO::hasReached(cycle - cycleStep, 1) ? (cycle - 1) / cycleStep : 0;
    std::uint32_t low = 1, high = most + 1;  // the first step that fits lies in [low, high]
    while (low < high) {
        const std::uint32_t middle = low + (high - low) / 2;
        if (fits(cycle - middle * cycleStep)) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    cycle -= low * cycleStep;
    return low <= most;
}

}  // namespace

std::uint32_t TransferConfig::bytesPerSecond() const noexcept {
    return (config.rate() * config.bitsPerSample() * config.channels()) >> 3;
}

bool TransferConfig::trialFix(std::uint32_t& wanted, std::uint16_t count) {
    const std::uint64_t maxBytes = burstLimit(*this, count);
    const std::uint32_t perSecond = bytesPerSecond();
    const std::uint32_t frame = frameBytes();
    if (maxBytes == 0 || perSecond == 0 || frame == 0 || wanted == 0) return false;
    fixedBytes = 0;

    // A cycle that fills the burst to its last byte counts as too long.
    const auto fits = [&](std::uint32_t trial) {
        return fixBytes(perSecond, frame, trial) < maxBytes;
    };
    if (!fits(wanted) && !stepDown(wanted, fits)) return false;
    cycle = wanted;
    const std::uint64_t bytes = fixBytes(perSecond, frame, cycle);
    packetCount = static_cast<std::uint16_t>((bytes + PackDataSize - 1) / PackDataSize);

    const std::uint64_t q14 =
        std::uint64_t{perSecond / frame} * 16384 * (cycle / packetCount) / 1000000;
    framesQ14 = static_cast<std::uint32_t>(q14);
    // Feedback may raise the flow by 491/16384, 3 percent: that is what the packet has room for.
    const std::uint64_t maxFrames = (q14 + 16383 + ((q14 * 491) >> 14)) >> 14;
    packetBytes = static_cast<std::uint32_t>(frame * maxFrames);
    mode = modeFix;
    return true;
}

bool TransferConfig::trialVar(std::uint32_t& wanted, std::uint16_t count) {
    const std::uint64_t maxBytes = burstLimit(*this, count);
    const std::uint32_t perSecond = bytesPerSecond();
    const std::uint32_t frame = frameBytes();
    if (maxBytes == 0 || perSecond == 0 || frame == 0 || wanted == 0) return false;
    if (PackDataSize < frame) return false;  // no packet would ever carry a byte

    std::uint64_t bytes = roundUpTo(roundUp(bytesOf(perSecond, wanted)), frame);
    if (bytes > maxBytes) {
        bytes = maxBytes;
        const std::uint64_t shorter = cycleOf(perSecond, bytes);
        if (shorter > std::numeric_limits<std::uint32_t>::max()) return false;
        wanted = static_cast<std::uint32_t>(shorter);
    }
    cycle = wanted;
    packetCount = static_cast<std::uint16_t>((bytes + PackDataSize - 1) / PackDataSize);
    fixedBytes = static_cast<std::uint32_t>(bytes / packetCount / frame * frame);
    packetBytes = fixedBytes;
    framesQ14 = fixedBytes / frame * 16384;
    mode = modeVar;
    return true;
}

bool TransferConfig::trialRandom(std::uint32_t shortest, std::uint32_t& wanted,
                                 std::uint16_t count) {
    if (!trialFix(wanted, count)) return false;
    if (shortest == 0 || cycle == shortest || !ZENNO::hasReached(cycle, shortest)) return false;
    cycleMin = shortest;
    mode = modeRandom;
    return true;
}

bool TransferConfig::trialBuffer(std::uint32_t bytes) {
    const std::uint32_t perSecond = bytesPerSecond();
    const std::uint32_t frame = frameBytes();
    if (bytes == 0 || perSecond == 0 || frame == 0 || PackDataSize == 0) return false;
    const std::uint64_t lasts = cycleOf(perSecond, bytes);
    if (lasts > std::numeric_limits<std::uint32_t>::max()) return false;
    std::uint32_t packet = bytes, packets = 1;
    while (packet > PackDataSize) {
        packet /= 2;
        packets *= 2;
    }
    if (packets > std::numeric_limits<std::uint16_t>::max()) return false;

    cycle = static_cast<std::uint32_t>(lasts);
    packetCount = static_cast<std::uint16_t>(packets);
    fixedBytes = packet;
    packetBytes = packet;
    framesQ14 = packet / frame * 16384;
    mode = modeVar;
    return true;
}

}  // namespace VELMORA
