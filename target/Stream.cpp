#include "target/Stream.h"

#include <algorithm>

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

// How often playout moves between datagrams, µs.
constexpr std::uint64_t tick = 2'000;
constexpr std::uint64_t underrunLines = 1'000'000;  // µs between them

Playout::Settings playoutFor(const TargetSettings& settings, const Stream::Opening& opening) {
    return {opening.format,      settings.bufferMicros.value_or(opening.latency * 100ull),
            settings.clockPpm,   settings.phaseInvert,
            settings.clockDrift, opening.now};
}

}  // namespace

Stream::Stream(const TargetSettings& settings, const Opening& opening,
               std::unique_ptr<AudioOutput> output)
    : settings_(settings),
      opening_(opening),
      wantsInvert_(settings.phaseInvert),
      output_(std::move(output)),
      playout_(playoutFor(settings, opening), *output_),
      feedback_(settings.feedbackEncoding),
      requests_({settings.askAfter, settings.askUntil}),
      lastHeard_(opening.now),
      random_(settings.seed) {}

void Stream::onData(const Arrival& arrival, const PacketView& packet, Mail& out) {
    if (settings_.dropPercent > 0 &&
        std::uniform_real_distribution<double>(0, 100)(random_) < settings_.dropPercent) {
        ++figures_.dropped;
        return;
    }
    const std::uint64_t now = arrival.now;
    if (figures_.packets++ == 0) firstData_ = now;
    lastData_ = lastHeard_ = now;
    const bool lastOfBurst = (packet.flags() & STREAM_DATA::lastOfBurst) != 0;
    bursts_.onPacket(arrival.stamp, lastOfBurst);

    switch (playout_.onPacket(packet.arg16(8), packet.payload(), lastOfBurst, now)) {
        case PacketQueue::Put::newest:
            break;
        case PacketQueue::Put::filled:
            ++figures_.reordered;
            break;
        case PacketQueue::Put::recovered:
            ++figures_.recovered;
            break;
        case PacketQueue::Put::duplicate:
            ++figures_.duplicates;
            break;
        case PacketQueue::Put::late:
            ++figures_.late;
            break;
        case PacketQueue::Put::foreign:
            break;
    }
    if ((packet.flags() & STREAM_DATA::asksInfo) != 0) {
        send(feedback_.answer(playout_.takeExcessMicros(), now), out);
    }
    askForMissing(now, out);
}

void Stream::onTime(std::uint64_t now, Mail& out) {
    playout_.advance(now);
    tellFailure(out);
    tellUnderruns(now, out);
    askForMissing(now, out);
}

void Stream::tellFailure(Mail& out) {
    if (toldFailure_ || !(playout_.outputFailed() || outputHasGone())) return;
    toldFailure_ = true;
    out.lines.push_back(outputHasGone() ? output_->where() + " has gone (" + output_->gone() +
                                              "); its stream ends, and the next one opens it anew"
                                        : "writing to " + output_->where() + " failed");
}

// Not each one: a machine that is too slow would say little else.
void Stream::tellUnderruns(std::uint64_t now, Mail& out) {
    const std::uint64_t underruns = playout_.deviceUnderruns();
    if (underruns == toldUnderruns_ || now < nextUnderrunLine_) return;
    nextUnderrunLine_ = now + underrunLines;
    out.lines.push_back(output_->where() + " ran dry or was suspended (" +
                        std::to_string(underruns) +
                        " so far); it goes on with silence, and a longer --alsa-buffer helps");
    toldUnderruns_ = underruns;
}

void Stream::askForMissing(std::uint64_t now, Mail& out) {
    const auto request = requests_.due(playout_.queue(), bursts_.cycle(), now);
    if (!request) return;
    INFO_ANS message;
    message.isResend = true;
    message.fill = request->from;
    message.fillTarget = request->last;
    send(message, out);
}

void Stream::send(INFO_ANS message, Mail& out) {
    if (settings_.silent.contains(STREAM_DATA::id)) return;
    if (isLost(settings_.lostAnswers, STREAM_DATA::id, random_)) return;
    // Every INFO_ANS says the phase anew; a host takes it from each.
    message.wantsInvert = wantsInvert_;
    message.accepted = !settings_.refused.contains(STREAM_DATA::id);
    out.datagrams.push_back({opening_.localPort, opening_.host, write(message)});
}

std::uint64_t Stream::nextTime(std::uint64_t now) const {
    return std::min(now + tick, requests_.nextTime(playout_.queue(), bursts_.cycle(), now));
}

Figures Stream::end(const std::string& reason, Mail& out) {
    playout_.finish();
    tellFailure(out);
    const std::string failure = output_->close();
    if (!failure.empty()) out.lines.push_back(failure);
    Figures figures = this->figures();
    figures.outputFailed |= !failure.empty();
    figures.state = "ended";
    figures.endReason = reason;
    return figures;
}

Figures Stream::figures() const {
    Figures f = figures_;
    f.sinkNo = opening_.sinkNo;
    f.state = playout_.isPlaying() ? "playing" : "buffering";
    f.format = opening_.format;
    f.host = opening_.host;
    f.hostName = opening_.hostName;
    f.output = output_->where();
    f.outputFailed = playout_.outputFailed() || outputHasGone();
    f.durationMicros = lastData_ - firstData_;
    f.frames = playout_.frames();
    f.bytes = playout_.bytes();
    f.fillMicros = playout_.fillMicros();
    f.targetMicros = playout_.targetMicros();
    f.clockPpm = playout_.clockPpm();
    f.latency = opening_.latency;
    f.resendRequests = requests_.sent();
    f.lost = playout_.queue().lost();
    f.underruns = playout_.underruns();
    f.deviceUnderruns = playout_.deviceUnderruns();
    f.overflows = playout_.overflows();
    f.bursts = bursts_.bursts();
    f.longestGap = bursts_.longestGap();
    f.infoAnswers = feedback_.answers();
    f.feedback = feedback_.last();
    f.feedbackLowest = feedback_.lowest();
    f.feedbackHighest = feedback_.highest();
    return f;
}

}  // namespace velmora_target
