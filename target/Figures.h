// What is counted of one stream, from its CONNECT_REQ to its end.
#pragma once

#include <cstdint>
#include <string>

#include "base/IPAddress.h"
#include "driver/SinkConfig.h"

namespace velmora_target {

struct Figures {
    std::uint16_t sinkNo = 0;
    std::string state;  // "buffering", "playing", "ended"
    VELMORA::SinkConfig format{};
    ZENNO::IPAddress host{};
    std::string hostName;  // from CLIENT_REQ, as shownText has it
    std::string endReason;
    std::string output;  // path or device
    bool outputFailed = false;

    std::uint64_t durationMicros = 0;     // from the first packet
    std::uint64_t frames = 0, bytes = 0;  // played
    double fillMicros = 0, targetMicros = 0;
    double clockPpm = 0;        // against nominal, the device's own corrections included
    std::uint16_t latency = 0;  // granted, 100 µs

    std::uint64_t packets = 0;  // received, duplicates and late ones among them
    std::uint64_t dropped = 0;  // thrown away on purpose, not among `packets`
    std::uint64_t duplicates = 0;
    std::uint64_t reordered = 0;        // came behind a later one, before it was asked for
    std::uint64_t resendRequests = 0;   // sent
    std::uint64_t recovered = 0;        // came after having been asked for
    std::uint64_t lost = 0;             // silence was played instead
    std::uint64_t late = 0;             // lost ones that came after all
    std::uint64_t underruns = 0;        // of the buffer: the stream came too late
    std::uint64_t deviceUnderruns = 0;  // a device stopped by itself: this machine was too late
    std::uint64_t overflows = 0;
    std::uint64_t bursts = 0;
    std::uint64_t longestGap = 0;  // µs between bursts
    std::uint64_t infoAnswers = 0;
    std::int16_t feedback = 0, feedbackLowest = 0, feedbackHighest = 0;  // 1.14
};

}  // namespace velmora_target
