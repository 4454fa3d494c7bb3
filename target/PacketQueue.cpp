#include "target/PacketQueue.h"

#include <algorithm>

namespace velmora_target {

// The number nearest to the newest that has these low 16 bits.
std::int64_t PacketQueue::numberOf(std::uint16_t sequence) const noexcept {
    return newest_ + static_cast<std::int16_t>(sequence - static_cast<std::uint16_t>(newest_));
}

std::uint64_t PacketQueue::missingBytes(std::uint16_t sequence, std::size_t bytes) const noexcept {
    const std::int64_t step = numberOf(sequence) - newest_;
    if (step < 1) return 0;
    return (holes_.size() + static_cast<std::uint64_t>(step - 1)) * std::max(neighbour_, bytes);
}

PacketQueue::Put PacketQueue::put(std::uint16_t sequence, VELMORA::wire::ConstBytes audio,
                                  std::uint64_t now) {
    const std::int64_t number = numberOf(sequence);
    if (number > newest_) {
        const auto skipped = static_cast<std::size_t>(number - newest_ - 1);
        if (slots_.size() + skipped >= mostPackets || holes_.size() + skipped >= mostHoles) {
            return Put::foreign;
        }
        const std::uint64_t since = newest_ < 0 ? now : lastArrival_;
        for (std::int64_t n = newest_ + 1; n < number; ++n) {
            slots_.emplace_back();
            holes_.emplace_hint(holes_.end(), n, Hole{since, false});
        }
        slots_.push_back({true, ZENNO::Bytes(audio.begin(), audio.end())});
        newest_ = number;
        lastArrival_ = now;
        present_ += audio.size();
        if (!audio.empty()) neighbour_ = audio.size();
        return Put::newest;
    }
    if (number < front_) return playedSilent_.erase(number) != 0 ? Put::late : Put::duplicate;

    const auto hole = holes_.find(number);
    if (hole == holes_.end()) return Put::duplicate;
    const bool asked = hole->second.asked;
    holes_.erase(hole);
    Slot& slot = slots_[static_cast<std::size_t>(number - front_)];
    slot = {true, ZENNO::Bytes(audio.begin(), audio.end())};
    present_ += audio.size();
    return asked ? Put::recovered : Put::filled;
}

std::size_t PacketQueue::take(std::size_t bytes, ZENNO::Bytes& out) {
    std::size_t taken = 0;
    while (taken < bytes && !slots_.empty()) {
        Slot& slot = slots_.front();
        if (!slot.present) {
            slot = {true, ZENNO::Bytes(neighbour_, silence_)};
            present_ += neighbour_;
            holes_.erase(front_);
            playedSilent_.insert(front_);
            ++lost_;
        }
        const std::size_t n = std::min(bytes - taken, slot.audio.size() - frontUsed_);
        const auto begin = slot.audio.begin() + static_cast<std::ptrdiff_t>(frontUsed_);
        out.insert(out.end(), begin, begin + static_cast<std::ptrdiff_t>(n));
        taken += n;
        frontUsed_ += n;
        present_ -= n;
        if (frontUsed_ == slot.audio.size()) {
            slots_.pop_front();
            ++front_;
            frontUsed_ = 0;
        }
    }
    // What lies half a turn of the sequence behind cannot be told from what is yet to come.
    while (!playedSilent_.empty() && *playedSilent_.begin() < newest_ - 0x7fff) {
        playedSilent_.erase(playedSilent_.begin());
    }
    return taken;
}

std::size_t PacketQueue::bytes() const noexcept {
    return present_ + holes_.size() * neighbour_;
}

void PacketQueue::markAsked(std::int64_t from) {
    for (auto hole = holes_.lower_bound(from); hole != holes_.end(); ++hole) {
        hole->second.asked = true;
    }
}

}  // namespace velmora_target
