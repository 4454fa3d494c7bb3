// Plays one stream: holds packets until there are enough, then takes frames out at its own clock.
//
// The end of a burst is the reference: there the fill is at its highest, playout begins there, and
// there the host asks how full the buffer is. An empty buffer pauses playout until it is filled
// again; nothing is made up for the pause, so that what was played is what came, in order, with
// silence only where a packet never arrived.
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
    // What is wanted, or more where two bursts do not fit into that.
    double targetMicros() const noexcept { return targetBytes_ * microsPerByte_; }
    double excessMicros() const noexcept;  // fill less target; 0 while it does not play
    double clockPpm() const { return clock_.deviation(now_); }

    std::uint64_t frames() const noexcept { return bytes_ / frameBytes_; }
    std::uint64_t bytes() const noexcept { return bytes_; }
    std::uint64_t underruns() const noexcept { return underruns_; }
    std::uint64_t overflows() const noexcept { return overflows_; }
    bool outputFailed() const noexcept { return outputFailed_; }

private:
    bool isBeyond(std::uint16_t sequence, std::size_t bytes, std::uint64_t now) const noexcept;
    void play(std::size_t bytes);
    void pause();

    AudioOutput& output_;
    PacketQueue queue_;
    PlayClock clock_;
    std::size_t frameBytes_;
    double microsPerByte_;
    double wantedBytes_;
    double targetBytes_;
    std::size_t burst_ = 0, largestBurst_ = 0;  // bytes, since playout last paused
    std::uint64_t lastNewest_;                  // arrival of the newest packet
    bool playing_ = false;
    std::uint64_t now_ = 0;       // of the newest advance
    std::uint64_t dueTaken_ = 0;  // frames that the clock has asked for, since playout began
    std::uint64_t bytes_ = 0, underruns_ = 0, overflows_ = 0;
    bool outputFailed_ = false;
    ZENNO::Bytes scratch_;
};

}  // namespace velmora_target
