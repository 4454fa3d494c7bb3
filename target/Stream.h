// One stream from one host: takes its packets, answers its questions, asks for what is missing.
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <utility>

#include "target/AudioOutput.h"
#include "target/BurstMeter.h"
#include "target/Feedback.h"
#include "target/Figures.h"
#include "target/Mail.h"
#include "target/Playout.h"
#include "target/ResendRequests.h"
#include "target/Settings.h"

namespace velmora_target {

class Stream {
public:
    struct Opening {
        std::uint16_t sinkNo = 0;
        std::uint16_t localPort = 0;  // of the audio
        ZENNO::IPAddress host{};
        std::string hostName;
        VELMORA::SinkConfig format{};
        std::uint16_t latency = 0;  // 100 µs
        std::uint64_t now = 0;
    };

    // `output` is open.
    Stream(const TargetSettings& settings, const Opening& opening,
           std::unique_ptr<AudioOutput> output);

    void onData(const Arrival& arrival, const VELMORA::wire::PacketView& packet, Mail& out);
    void onTime(std::uint64_t now, Mail& out);
    std::uint64_t nextTime(std::uint64_t now) const;
    // Plays out what is held and closes the output.
    Figures end(const std::string& reason, Mail& out);
    // Of a stream that has ended: a device may have something left to play.
    std::unique_ptr<AudioOutput> takeOutput() noexcept { return std::move(output_); }
    bool outputHasGone() const { return !output_->gone().empty(); }

    const ZENNO::IPAddress& host() const noexcept { return opening_.host; }
    VELMORA::SinkConfig format() const noexcept { return opening_.format; }
    bool wantsInvert() const noexcept { return wantsInvert_; }
    bool hasData() const noexcept { return figures_.packets != 0; }
    std::uint64_t silentFor(std::uint64_t now) const noexcept { return now - lastHeard_; }
    Figures figures() const;

private:
    void tellFailure(Mail& out);
    void tellUnderruns(std::uint64_t now, Mail& out);
    void askForMissing(std::uint64_t now, Mail& out);
    void send(VELMORA::wire::INFO_ANS message, Mail& out);

    const TargetSettings& settings_;
    Opening opening_;
    const bool wantsInvert_;  // as at the opening, like the silence that playout makes
    std::unique_ptr<AudioOutput> output_;
    Playout playout_;
    Feedback feedback_;
    ResendRequests requests_;
    BurstMeter bursts_;
    Figures figures_;  // those that no part above counts
    std::uint64_t firstData_ = 0, lastData_ = 0, lastHeard_ = 0;
    std::mt19937 random_;
    bool toldFailure_ = false;
    std::uint64_t toldUnderruns_ = 0, nextUnderrunLine_ = 0;
};

}  // namespace velmora_target
