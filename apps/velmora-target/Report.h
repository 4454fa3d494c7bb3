// What the program prints, as text or as one JSON object a line.
//
// Keys of a stream's figures, which "figures", "stream" and "summary" have in common: sink, state,
// format, formatWord, channels, rate, bits, host, hostName, output, endReason, durationMicros,
// frames, bytes, fillMicros, targetMicros, clockPpm, latencyMicros, packets, dropped, duplicates,
// reordered, resendRequests, recovered, lost, late, underruns, deviceUnderruns, overflows,
// bursts, longestGapMicros, infoAnswers, feedback, feedbackLowest, feedbackHighest. They are
// stable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "target/Figures.h"
#include "target/Settings.h"
#include "target/Transfers.h"

namespace velmora_target {

class Report {
public:
    Report(bool json, bool quiet, bool hidesFigures)
        : json_(json), quiet_(quiet), hidesFigures_(hidesFigures) {}

    void ready(const TargetSettings& settings, const std::vector<std::string>& interfaces) const;
    void event(double seconds, const std::string& text) const;
    void figures(double seconds, const Figures& figures) const;
    void streamEnded(double seconds, const Figures& figures) const;
    struct Totals {
        std::uint64_t streams = 0, settingChanges = 0;
        TransferCounts transfers;
        std::uint64_t misbehaved = 0;
    };
    // The last thing that is printed, quiet or not.
    void summary(double seconds, const std::optional<Figures>& last, const Totals& totals) const;

private:
    bool json_, quiet_, hidesFigures_;
};

}  // namespace velmora_target
