// Plays one stream: holds packets until there are enough, then takes frames out at its own clock.
//
// The end of a burst is the reference: there the fill is at its highest, playout begins there, and
// there the host asks how full the buffer is. An empty buffer pauses playout until it is filled
// again; nothing is made up for the pause, so that what was played is what came, in order, with
// silence only where a packet never arrived.
//
// An output with a clock of its own is kept full out of the buffer, and what it holds counts as the
// buffer's: all is as if the device's clock were ours. The buffer may be empty then for as long as
// the device has something in hand.
#pragma once

#include <cstdint>

#include "target/AudioOutput.h"
#include "target/PacketQueue.h"
#include "target/PlayClock.h"

namespace velmora_target {

class Playout {
public:
    struct Settings {
        VELMORA::SinkConfig format{};  // that has a rate
        std::uint64_t targetMicros = 0;
        double clockPpm = 0;
        bool inverted = false;  // the host was asked to invert: so is silence
        ClockDrift clockDrift{};
        std::uint64_t begun = 0;  // when the stream was opened
    };

    Playout(const Settings& settings, AudioOutput& output);

    PacketQueue::Put onPacket(std::uint16_t sequence, VELMORA::wire::ConstBytes audio,
                              bool lastOfBurst, std::uint64_t now);
    void advance(std::uint64_t now);
    void finish();  // plays out all that is held

    PacketQueue& queue() noexcept { return queue_; }
    const PacketQueue& queue() const noexcept { return queue_; }
    bool isPlaying() const noexcept { return playing_; }
    double fillMicros() const noexcept;
    // What is wanted, or more where two bursts do not fit into that; and what the device wants.
    double targetMicros() const noexcept;
    double excessMicros() const noexcept;  // fill less target; 0 while it does not play
    // The same for feedback. A device may tell how far it is in steps alone: of one, the mean over
    // the ends of bursts since the last call.
    double takeExcessMicros() noexcept;
    // Of the clock that plays, against nominal. A device's is what was seen of it, after a second.
    double clockPpm() const;

    std::uint64_t frames() const noexcept { return bytes_ / frameBytes_; }
    std::uint64_t bytes() const noexcept { return bytes_; }
    std::uint64_t underruns() const noexcept { return underruns_; }
    std::uint64_t overflows() const noexcept { return overflows_; }
    std::uint64_t deviceUnderruns() const noexcept { return device_.underruns; }
    bool outputFailed() const noexcept { return outputFailed_; }

private:
    bool isBeyond(std::uint16_t sequence, std::size_t bytes, std::uint64_t now) const noexcept;
    double surplusOver(double target) const noexcept;
    double heldBytes() const noexcept;
    void begin(double target, std::uint64_t now);
    void follow(const DeviceFill& fill);
    void measure(std::uint64_t given);
    void play(std::size_t bytes);
    void discard(std::size_t bytes);
    void pause();

    AudioOutput& output_;
    PacketQueue queue_;
    PlayClock clock_;
    double rate_;  // frames a second
    std::size_t frameBytes_;
    double microsPerByte_;
    double wantedBytes_;
    double targetBytes_;
    std::size_t burst_ = 0, largestBurst_ = 0;  // bytes, since playout last paused
    std::uint64_t lastNewest_;                  // arrival of the newest packet
    bool playing_ = false;
    std::uint64_t now_ = 0;       // of the newest advance
    std::uint64_t dueTaken_ = 0;  // frames that the clock has asked for, since playout began
    DeviceFill device_;           // as it was seen last; all zero where there is none
    bool hasDevice_ = false, hasBegun_ = false;
    double excessSum_ = 0;  // µs, over so many ends of bursts
    std::uint64_t excessCount_ = 0;
    // How much a device has played since this was begun: what it was given, and held at both ends.
    bool isMeasured_ = false;
    std::uint64_t measuredSince_ = 0, given_ = 0, heldAtFirst_ = 0;
    std::uint64_t bytes_ = 0, underruns_ = 0, overflows_ = 0;
    bool outputFailed_ = false;
    ZENNO::Bytes scratch_;
};

}  // namespace velmora_target
