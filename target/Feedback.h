// From the buffer's excess to the number that the host is told.
//
// The host integrates what it hears: each message moves its flow by 10 % of the change and 4 % of
// the value. How hard that steers depends on how often it asks; the gain here follows the spacing
// of its questions, so that the loop settles in about ten of them whatever the spacing is.
#pragma once

#include <cstdint>

#include "wire/StreamMessage.h"

namespace velmora_target {

class Feedback {
public:
    explicit Feedback(int encoding) : encoding_(encoding) {}

    // The host asks, with `excessMicros` more in the buffer than is wanted.
    VELMORA::wire::INFO_ANS answer(double excessMicros, std::uint64_t now);

    bool hasAnswered() const noexcept { return answers_ != 0; }
    std::uint64_t answers() const noexcept { return answers_; }
    // As the host decodes it, 1.14: positive asks it to slow down.
    std::int16_t last() const noexcept { return last_; }
    std::int16_t lowest() const noexcept { return lowest_; }
    std::int16_t highest() const noexcept { return highest_; }

private:
    int encoding_;
    std::uint64_t answers_ = 0;
    std::uint64_t asked_ = 0;   // time of the last question
    double spacing_ = 100'000;  // µs between questions
    std::int16_t last_ = 0, lowest_ = 0, highest_ = 0;
};

}  // namespace velmora_target
