// Reads the lines of one program's streams, packet trace and all, into figures.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "apps/log/Deadlines.h"
#include "apps/log/Figures.h"
#include "apps/log/Message.h"

namespace velmora_log {

class StreamReader {
public:
    explicit StreamReader(Figures& figures) : figures_(figures) {}

    void take(const Message& message);
    // There is no more: what waits for a cycle to be known is counted as far as it tells one.
    void finish();

private:
    void onText(std::string_view text);
    void onTrace(const std::vector<SentPacket>& trace);
    void onStart(std::string_view text);
    void onFeedback(std::string_view text);
    void onLateTurn(std::uint32_t late);

    void beginStream();
    void forgetCycle();
    void setCycle(std::uint32_t cycle, bool isEstimated);
    bool isMissing(std::int64_t gap) const;
    void give(const std::vector<std::int64_t>& times);
    void countBursts(const std::vector<std::int64_t>& times);
    void onBurst(const Burst& burst);
    void estimate();
    std::int64_t unwrapped(std::uint32_t micros) const;
    std::int64_t placeOf(std::int64_t micros) const;  // in the timeline
    std::int64_t now() const { return placeOf(last_.value_or(0)); }

    Figures& figures_;
    std::optional<Deadlines> deadlines_;  // none while the cycle is not known
    std::optional<std::uint32_t> told_;   // cycle by the log, for the stream that begins
    std::uint32_t toldLeast_ = 0;         // of cycles that are drawn; 0: they are not
    bool begins_ = false;                 // the stream's begin was heard, its packets not yet
    bool isDrawn_ = false;

    std::optional<std::int64_t> last_;      // when the last packet went out, unwrapped
    std::int64_t origin_ = 0, offset_ = 0;  // of the stream: its first packet, its place
    std::optional<std::int64_t> asked_;     // when the target was asked for feedback
    std::uint32_t worstSince_ = 0;          // late turn since the last record
    std::optional<std::int64_t> burstBefore_;
    std::vector<std::int64_t> waiting_;  // packets, until the cycle is known
    std::size_t waitingRecords_ = 0;
};

}  // namespace velmora_log
