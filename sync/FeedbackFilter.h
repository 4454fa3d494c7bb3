// How the target's feedback trims the flow: an average of the newest values, a correction that
// follows its change and its height, and what a profile row becomes under that correction. 1.14
// fixed point: 16384 is 1.0. Integers only.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "sync/TransferProfile.h"

namespace VELMORA {

class FeedbackFilter {
public:
    // The flow can be lowered by 10 percent and raised by 3 percent only, on purpose.
    static constexpr std::int16_t mostAdjust = 491, leastAdjust = -1638;

    explicit FeedbackFilter(std::uint32_t feedbackDepth) noexcept : depth_(feedbackDepth) {}

    // Every pass of the worker's loop: the present average becomes the previous one.
    void onPass() noexcept { previousAverage_ = average_; }
    // A value, positive where the target holds more than it wants.
    void onFeedback(std::int16_t value) noexcept;

    std::int16_t average() const noexcept { return average_; }
    std::int16_t adjust() const noexcept { return adjust_; }  // positive: more flow

    // The row under the correction: always from the row's own value, never compounded. A Var row's
    // cycle changes, any other row's frames.
    std::uint32_t cycleFor(const TransferProfile& row) const noexcept;
    std::uint32_t framesFor(const TransferProfile& row) const noexcept;
    // The most that framesFor ever gives.
    static std::uint32_t mostFramesFor(const TransferProfile& row) noexcept;

private:
    static std::int64_t scaled(std::uint32_t value, std::int16_t by) noexcept {
        return (std::int64_t{by} * value) >> 14;
    }
    static std::uint32_t framesUnder(std::int16_t adjust, const TransferProfile& row) noexcept;

    std::uint32_t depth_;                    // 1 to 8
    std::array<std::int16_t, 8> history_{};  // newest first
    std::int16_t average_ = 0, previousAverage_ = 0, adjust_ = 0;
};

// 8 characters for the log: a blank, the sign, a digit, a point, four decimals.
std::string fixedText(std::int16_t value);
// The log line of a feedback message: the value as it came and what the filter made of it; then the
// present cycle of a Var row, or the frames of a cycle.
std::string feedbackText(int encoding, std::int16_t value, const FeedbackFilter& filter,
                         const TransferProfile& row, std::uint32_t cycle, std::uint32_t framesQ14);

}  // namespace VELMORA
