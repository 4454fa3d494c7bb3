// How a stream is cut into time: how long a cycle lasts, how many datagrams it has, how many bytes
// each carries; and the search that meets what a target asked for in PROFILE_ANS.
#pragma once

#include <cstdint>

#include "driver/SinkConfig.h"

namespace VELMORA {

enum TransferMode : std::uint32_t {
    modeVar = 0,     // bytes of a packet constant; feedback changes the cycle
    modeFix = 1,     // cycle constant; feedback changes the frames of a packet
    modeRandom = 2,  // Fix, with every cycle drawn between cycleMin and cycle
};

// One row: what the stream worker runs by.
struct TransferProfile {
    std::uint32_t cycle = 0;        // µs between bursts
    std::uint32_t fixedBytes = 0;   // payload of a packet in Var; 0 in Fix and Random
    std::uint32_t packetBytes = 0;  // largest payload of a packet
    std::uint32_t framesQ14 = 0;    // frames of a packet x 16384
    std::uint16_t packetCount = 0;  // packets of a cycle
    std::uint32_t cycleMin = 0;     // Random: shortest cycle, µs
    std::uint32_t mode = modeVar;

    friend bool operator==(const TransferProfile&, const TransferProfile&) = default;
};

// What a target asks for (PROFILE_ANS).
enum ProfileFlag : std::uint16_t {
    ProfileLimitOnly = 0x01,
    ProfileVar = 0x02,
    ProfileSweep = 0x04,
    ProfileMultiPacket = 0x08,
    ProfileRandom = 0x10,
};

// The working record of the search: a row in the making and everything that binds it. `cycle` is in
// and out, in µs; `count` limits the packets of a cycle, 0 for PackDataCount. A false leaves
// `cycle` as the trial left it.
struct TransferConfig : TransferProfile {
    std::uint16_t minCycle10 = 0;    // 10 µs
    std::uint16_t maxCycle10 = 0;    // 10 µs
    std::uint16_t profileFlags = 0;  // ProfileFlag
    SinkConfig config{};
    std::uint32_t limitCycle = 0;     // lowest cycle that the caller accepts, µs
    std::uint16_t PackDataSize = 0;   // largest payload of one packet
    std::uint16_t PackDataCount = 0;  // most packets in one cycle
    bool forceAuto = false;

    bool trialFix(std::uint32_t& cycle, std::uint16_t count);
    bool trialVar(std::uint32_t& cycle, std::uint16_t count);
    bool trialFixAuto(std::uint32_t& cycle);
    bool trialVarAuto(std::uint32_t& cycle);
    bool trialRandom(std::uint32_t cycleMin, std::uint32_t& cycle, std::uint16_t count);
    bool trialBuffer(std::uint32_t bytes);
    bool searchProfile();
    // Never fails on a sound config; false only where no trial could ever fit (a payload limit of
    // 0, a rate of 0), where a search would not end.
    bool configTransferAuto(std::uint32_t cycle);

    std::uint32_t bytesPerSecond() const noexcept;
    std::uint32_t frameBytes() const noexcept { return config.frameBytes(); }
};

}  // namespace VELMORA
