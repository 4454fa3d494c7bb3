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

constexpr std::uint64_t leastMeasured = 1'000'000;  // µs

}  // namespace

Playout::Playout(const Settings& settings, AudioOutput& output)
    : output_(output),
      queue_(VELMORA::silenceByte(settings.format, settings.inverted)),
      clock_(frameRate(settings.format), settings.clockPpm, settings.clockDrift),
      rate_(frameRate(settings.format)),
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
    if (playing_ && lastOfBurst && hasDevice_) {
        excessSum_ += excessMicros();
        ++excessCount_;
    }
    if (!playing_ && lastOfBurst) {
        const double target = std::max(wantedBytes_, 2.0 * static_cast<double>(largestBurst_));
        if (target > 0 && surplusOver(target) >= 0) begin(target, now);
    }
    const double surplus = surplusOver(targetBytes_);
    if (surplus * microsPerByte_ > overflowMicros) {
        ++overflows_;
        const std::size_t bytes = static_cast<std::size_t>(surplus) / frameBytes_ * frameBytes_;
        // A device takes no more than it plays.
        hasDevice_ ? discard(bytes) : play(bytes);
    }
    return put;
}

void Playout::begin(double target, std::uint64_t now) {
    targetBytes_ = target;
    playing_ = hasBegun_ = true;
    isMeasured_ = false;
    dueTaken_ = 0;
    clock_.start(now);
    excessSum_ = 0;
    excessCount_ = 0;
    if (hasDevice_) advance(now);
}

void Playout::advance(std::uint64_t now) {
    now_ = now;
    const auto fill = output_.device();
    hasDevice_ = fill.has_value();
    if (fill) return follow(*fill);
    device_ = {0, 0, 0, device_.underruns};
    if (!playing_) return;
    const std::uint64_t due = clock_.framesDue(now) - dueTaken_;
    const std::uint64_t held = queue_.bytes() / frameBytes_;
    const std::uint64_t frames = std::min(due, held);
    dueTaken_ += frames;
    if (frames != 0) play(static_cast<std::size_t>(frames) * frameBytes_);
    if (due > held) {
        ++underruns_;
        pause();
    }
}

// Fills the device up.
void Playout::follow(const DeviceFill& fill) {
    const bool stopped = fill.underruns != device_.underruns;
    device_ = fill;
    if (playing_ && stopped) pause();
    if (!playing_) {
        if (hasBegun_) output_.rest();
        return;
    }
    // Should it turn out to have no clock, ours goes on from here.
    dueTaken_ = clock_.framesDue(now_);
    const std::uint64_t room = fill.wanted - std::min(fill.held, fill.wanted);
    const std::uint64_t frames = std::min<std::uint64_t>(room, queue_.bytes() / frameBytes_);
    if (frames != 0) play(static_cast<std::size_t>(frames) * frameBytes_);
    device_.held += frames;
    measure(frames);
    // Before it runs dry: silence that comes in time keeps it running.
    if (queue_.bytes() < frameBytes_ && device_.held <= fill.least) {
        ++underruns_;
        pause();
        output_.rest();
    }
}

void Playout::measure(std::uint64_t given) {
    if (isMeasured_) {
        given_ += given;
        return;
    }
    isMeasured_ = true;
    measuredSince_ = now_;
    given_ = 0;
    heldAtFirst_ = device_.held;
}

double Playout::clockPpm() const {
    if (!hasDevice_) return clock_.deviation(now_);
    if (!playing_ || !isMeasured_ || now_ - measuredSince_ < leastMeasured) return 0;
    const double played =
        static_cast<double>(heldAtFirst_ + given_) - static_cast<double>(device_.held);
    const double seconds = static_cast<double>(now_ - measuredSince_) / 1e6;
    return (played / (seconds * rate_) - 1) * 1e6;
}

void Playout::pause() {
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

void Playout::discard(std::size_t bytes) {
    scratch_.clear();
    queue_.take(bytes, scratch_);
}

// Bytes that buffer and device hold above `target` and what the device wants.
double Playout::surplusOver(double target) const noexcept {
    return heldBytes() - target - static_cast<double>(device_.wanted * frameBytes_);
}

double Playout::heldBytes() const noexcept {
    return static_cast<double>(queue_.bytes() + device_.held * frameBytes_);
}

double Playout::fillMicros() const noexcept {
    return heldBytes() * microsPerByte_;
}

double Playout::targetMicros() const noexcept {
    return (targetBytes_ + static_cast<double>(device_.wanted * frameBytes_)) * microsPerByte_;
}

double Playout::takeExcessMicros() noexcept {
    const double mean =
        excessCount_ == 0 ? excessMicros() : excessSum_ / static_cast<double>(excessCount_);
    excessSum_ = 0;
    excessCount_ = 0;
    return mean;
}

double Playout::excessMicros() const noexcept {
    return playing_ ? fillMicros() - targetMicros() : 0;
}

}  // namespace velmora_target
