#include "apps/velmora-relay/Relay.h"

#include <algorithm>

namespace velmora_relay {

Relay::Relay(const Options& options, Send send)
    : above_(options.above),
      thenAll_(options.thenAll),
      acts_{options.forth, options.back},
      send_(std::move(send)),
      judges_{Judge(options.faults, options.seed), Judge(options.faults, options.seed + 1)},
      cuts_(options.faults.cuts),
      flood_(options.flood, options.seed + 2) {}

void Relay::onFrame(int side, std::span<std::uint8_t> frame, std::uint64_t now) {
    const auto from = static_cast<std::size_t>(side);
    Counts& counts = counts_[from];
    ++counts.frames;
    const auto payload = udpPayload(frame);
    if (payload) {
        ++counts.datagrams;
        mendChecksum(frame);
    }
    const bool isLarger = payload && *payload > above_;
    largerCame_ = largerCame_ || isLarger;
    if (payload && side == 0 && largerCame_) flood_.onHost(flowOf(frame), now);
    const bool isActedOn = payload && (isLarger || (thenAll_ && largerCame_)) && acts_[from];
    if (isActedOn) cuts_.begin(now);
    if (cuts_.isDown(now)) {
        ++counts.cut;
        return;
    }
    if (!isActedOn) return pass(side, frame, now, now);

    ++counts.acted;
    counts.actedBytes += *payload;
    Judge& judge = judges_[from];
    const Fate fate = judge.judge(now);
    if (fate.isLost) {
        ++counts.lost;
        return;
    }
    if (fate.corruption == Corruption::seen) ++counts.corrupted;
    if (fate.corruption == Corruption::unseen) ++counts.corruptedUnseen;
    if (fate.corruption != Corruption::none) {
        corrupt(frame, fate.corruption == Corruption::unseen, judge.bits());
    }
    if (fate.isHeldBack) ++counts.heldBack;
    if (fate.due > now) ++counts.delayed;
    pass(side, frame, fate.due, now);
    if (fate.copyDue) {
        ++counts.doubled;
        pass(side, frame, *fate.copyDue, now);
    }
}

void Relay::pass(int side, std::span<const std::uint8_t> frame, std::uint64_t due,
                 std::uint64_t now) {
    if (due <= now) {
        send_(1 - side, frame);
        return;
    }
    if (!queue_.push(due, {1 - side, ZENNO::Bytes(frame.begin(), frame.end())})) {
        ++counts_[static_cast<std::size_t>(side)].overflow;
    }
}

void Relay::onTime(std::uint64_t now) {
    while (const auto item = queue_.pop(now)) {
        // What is on its way when the link goes down does not arrive either.
        if (cuts_.isDown(now)) {
            ++counts_[static_cast<std::size_t>(1 - item->side)].cut;
        } else {
            send_(item->side, item->frame);
        }
    }
    flood(now);
}

void Relay::flood(std::uint64_t now) {
    for (std::uint64_t due = flood_.due(now); due != 0; --due) {
        if (!send_(0, flood_.make())) continue;
        if (flooded_ == 0) firstFlood_ = now;
        ++flooded_;
        lastFlood_ = now;
    }
}

std::uint64_t Relay::nextTime(std::uint64_t now) const noexcept {
    return std::min(queue_.nextDue(), flood_.nextDue(now));
}

}  // namespace velmora_relay
