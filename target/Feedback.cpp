#include "target/Feedback.h"

#include <algorithm>
#include <cmath>

namespace velmora_target {

namespace {

constexpr double one = 16384;         // 1.0 in 1.14
constexpr double most = 16383;        // what every encoding can say, both ways
constexpr double gain = 3;            // value per excess, in spacings of the questions
constexpr double leastFull = 33'000;  // µs of excess that may count as 1.0 at the least: jitter of
                                      // some ms is no reason to change the flow
// The third encoding tells two sizes and has the host divide; with this as the second, the first
// carries the value in full resolution.
constexpr std::uint16_t fillUnit = 16384;

}  // namespace

VELMORA::wire::INFO_ANS Feedback::answer(double excessMicros, std::uint64_t now) {
    if (answers_ != 0) {
        const double spacing = std::clamp(static_cast<double>(now - asked_), 1'000.0, 2'000'000.0);
        spacing_ += (spacing - spacing_) / 4;
    }
    asked_ = now;
    ++answers_;

    const double full = std::max(leastFull, spacing_ / gain);
    const auto value =
        static_cast<std::int16_t>(std::lround(std::clamp(excessMicros / full * one, -most, most)));
    const auto answer = VELMORA::wire::encodeFeedback(
        encoding_, value, static_cast<std::uint16_t>(fillUnit + value), fillUnit);
    last_ = VELMORA::wire::decodeFeedback(answer).value;
    lowest_ = answers_ == 1 ? last_ : std::min(lowest_, last_);
    highest_ = answers_ == 1 ? last_ : std::max(highest_, last_);
    return answer;
}

}  // namespace velmora_target
