#include "target/Playout.h"

#include <algorithm>

#include "target/FormatMasks.h"

namespace velmora_target {

namespace {

// So much above its target a buffer never holds more: the rest is played at once. No honest host
// gets there, since it is told to slow down long before.
constexpr double overflowMicros = 1e6;

}  // namespace

Playout::Playout(const Settings& settings, AudioOutput& output)
    : output_(output),
      queue_(VELMORA::silenceByte(settings.format, settings.inverted)),
      clock_(frameRate(settings.format), settings.clockPpm),
      frameBytes_(settings.format.frameBytes()),
      microsPerByte_(1e6 / (frameRate(settings.format) * static_cast<double>(frameBytes_))),
      wantedBytes_(static_cast<double>(settings.targetMicros) / microsPerByte_),
      targetBytes_(wantedBytes_) {}

PacketQueue::Put Playout::onPacket(std::uint16_t sequence, VELMORA::wire::ConstBytes audio,
                                   bool lastOfBurst, std::uint64_t now) {
    advance(now);
    const auto put = queue_.put(sequence, audio, now);
    if (put == PacketQueue::Put::newest) burst_ += audio.size();
    if (lastOfBurst) {
        if (!playing_) largestBurst_ = std::max(largestBurst_, burst_);
        burst_ = 0;
    }
    const auto held = static_cast<double>(queue_.bytes());
    if (!playing_ && lastOfBurst) {
        const double target = std::max(wantedBytes_, 2.0 * static_cast<double>(largestBurst_));
        if (target > 0 && held >= target) {
            targetBytes_ = target;
            playing_ = true;
            dueTaken_ = 0;
            clock_.start(now);
        }
    }
    if ((held - targetBytes_) * microsPerByte_ > overflowMicros) {
        ++overflows_;
        play(static_cast<std::size_t>(held - targetBytes_) / frameBytes_ * frameBytes_);
    }
    return put;
}

void Playout::advance(std::uint64_t now) {
    if (!playing_) return;
    clock_.setCorrection(now, output_.clockCorrectionPpm());
    const std::uint64_t due = clock_.framesDue(now) - dueTaken_;
    const std::uint64_t held = queue_.bytes() / frameBytes_;
    const std::uint64_t frames = std::min(due, held);
    dueTaken_ += frames;
    if (frames != 0) play(static_cast<std::size_t>(frames) * frameBytes_);
    if (due > held) pause();
}

void Playout::pause() {
    ++underruns_;
    playing_ = false;
    burst_ = largestBurst_ = 0;
    targetBytes_ = wantedBytes_;
}

void Playout::finish() {
    // The last frame may be cut short where packets do not hold whole frames.
    play(queue_.bytes() / frameBytes_ * frameBytes_);
    playing_ = false;
}

void Playout::play(std::size_t bytes) {
    scratch_.clear();
    queue_.take(bytes, scratch_);
    bytes_ += scratch_.size();
    if (!scratch_.empty() && !outputFailed_) outputFailed_ = !output_.write(scratch_);
}

double Playout::fillMicros() const noexcept {
    return static_cast<double>(queue_.bytes()) * microsPerByte_;
}

double Playout::excessMicros() const noexcept {
    return playing_ ? fillMicros() - targetMicros() : 0;
}

}  // namespace velmora_target
