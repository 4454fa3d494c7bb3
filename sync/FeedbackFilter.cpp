#include "sync/FeedbackFilter.h"

#include <algorithm>

namespace VELMORA {

namespace {

// Of a change and of a height: 0.1 and 0.04.
constexpr std::int32_t changeGain = 1638, heightGain = 655;

constexpr std::int16_t to16(std::int32_t v) noexcept {
    return static_cast<std::int16_t>(v);
}

// Four decimals of a 14-bit fraction: five are worked out, 5 is added to the last, and it is
// dropped.
std::string decimals(std::uint32_t fraction) {
    const std::uint32_t n = ((fraction * 100000) >> 14) + 5;
    std::string text;
    for (const std::uint32_t unit : {10000u, 1000u, 100u, 10u}) {
        text += static_cast<char>('0' + n / unit % 10);
    }
    return text;
}

}  // namespace

void FeedbackFilter::onFeedback(std::int16_t value) noexcept {
    std::shift_right(history_.begin(), history_.end(), 1);
    history_[0] = value;
    std::int32_t sum = 0;
    for (std::uint32_t i = 0; i < depth_; ++i) sum += history_[i];
    average_ = to16(sum / static_cast<std::int32_t>(depth_));

    const std::int16_t d = to16(average_ - previousAverage_);
    const std::int16_t step = to16(((d * changeGain) >> 14) + ((average_ * heightGain) >> 14));
    adjust_ = std::clamp(to16(adjust_ - step), leastAdjust, mostAdjust);
}

std::uint32_t FeedbackFilter::cycleFor(const TransferProfile& row) const noexcept {
    if (row.fixedBytes == 0) return row.cycle;
    return static_cast<std::uint32_t>(row.cycle - scaled(row.cycle, adjust_));
}

std::uint32_t FeedbackFilter::framesFor(const TransferProfile& row) const noexcept {
    return framesUnder(adjust_, row);
}

std::uint32_t FeedbackFilter::mostFramesFor(const TransferProfile& row) noexcept {
    return framesUnder(mostAdjust, row);
}

std::uint32_t FeedbackFilter::framesUnder(std::int16_t adjust,
                                          const TransferProfile& row) noexcept {
    if (row.fixedBytes != 0) return row.framesQ14;
    return static_cast<std::uint32_t>(row.framesQ14 + scaled(row.framesQ14, adjust));
}

std::string fixedText(std::int16_t value) {
    const auto magnitude = static_cast<std::uint32_t>(value < 0 ? -std::int32_t{value} : value);
    std::string text = value < 0 ? " -" : "  ";
    text += (magnitude & 0x4000) != 0 ? '1' : '0';
    text += '.';
    return text + decimals(magnitude & 0x3fff);
}

std::string feedbackText(int encoding, std::int16_t value, const FeedbackFilter& filter,
                         const TransferProfile& row, std::uint32_t cycle, std::uint32_t framesQ14) {
    std::string text = "info rcv " + std::to_string(encoding) + fixedText(value) +
                       fixedText(filter.average()) + fixedText(filter.adjust());
    if (row.fixedBytes != 0) return text + " cy=" + std::to_string(cycle);
    const std::uint64_t frames = std::uint64_t{row.packetCount} * framesQ14;
    return text + " fs=" + std::to_string(frames >> 14) + "." +
           decimals(static_cast<std::uint32_t>(frames & 0x3fff));
}

}  // namespace VELMORA
