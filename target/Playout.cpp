#include "target/Playout.h"

#include <algorithm>

#include "target/FormatMasks.h"

namespace velmora_target {

namespace {

// So much above its target a buffer never holds more: the rest is played at once. No honest host
// gets there, since it is told to slow down long before.
constexpr double overflowMicros = 1e6;

// So much more audio than time has passed may be missing in front of a packet.
constexpr double aheadMicros = 2e6;
// Played in pieces of so many bytes at the most, and a frame.
constexpr std::size_t pieceBytes = 65536;

}  // namespace

Playout::Playout(const Settings& settings, AudioOutput& output)
    : output_(output),
      queue_(VELMORA::silenceByte(settings.format, settings.inverted)),
      clock_(frameRate(settings.format), settings.clockPpm, settings.clockDrift),
      frameBytes_(settings.format.frameBytes()),
      microsPerByte_(1e6 / (frameRate(settings.format) * static_cast<double>(frameBytes_))),
      wantedBytes_(static_cast<double>(settings.targetMicros) / microsPerByte_),
      targetBytes_(wantedBytes_),
      lastNewest_(settings.begun) {}

// Audio cannot be skipped faster than it is made: whoever counts so far ahead is believed nothing,
// and no silence is played for him.
bool Playout::isBeyond(std::uint16_t sequence, std::size_t bytes,
                       std::uint64_t now) const noexcept {
    const double missing =
        static_cast<double>(queue_.missingBytes(sequence, bytes)) * microsPerByte_;
    const auto& holes = queue_.holes();
    const std::uint64_t since = holes.empty() ? lastNewest_ : holes.begin()->second.since;
    return missing > static_cast<double>(now - since) + aheadMicros;
}

PacketQueue::Put Playout::onPacket(std::uint16_t sequence, VELMORA::wire::ConstBytes audio,
                                   bool lastOfBurst, std::uint64_t now) {
    advance(now);
    const auto put = isBeyond(sequence, audio.size(), now) ? PacketQueue::Put::foreign
                                                           : queue_.put(sequence, audio, now);
    if (put == PacketQueue::Put::newest) {
        burst_ += audio.size();
        lastNewest_ = now;
    }
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
    now_ = now;
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
    const std::size_t most = std::max(pieceBytes / frameBytes_, std::size_t{1}) * frameBytes_;
    while (bytes != 0) {
        const std::size_t piece = std::min(bytes, most);
        bytes -= piece;
        scratch_.clear();
        queue_.take(piece, scratch_);
        if (scratch_.empty()) return;
        bytes_ += scratch_.size();
        if (!outputFailed_) outputFailed_ = !output_.write(scratch_);
    }
}

double Playout::fillMicros() const noexcept {
    return static_cast<double>(queue_.bytes()) * microsPerByte_;
}

double Playout::excessMicros() const noexcept {
    return playing_ ? fillMicros() - targetMicros() : 0;
}

}  // namespace velmora_target
