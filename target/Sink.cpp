#include "target/Sink.h"

#include <algorithm>
#include <utility>

#include "target/Discovery.h"
#include "wire/StreamMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

// A host that has been silent for so long no longer keeps others away, µs.
constexpr std::uint64_t giveWayAfter = 1'000'000;
// How often an output is looked at that plays what is left of its stream, µs.
constexpr std::uint64_t endingTick = 2'000;

std::string textOf(const ZENNO::IPAddress& address) {
    std::string text;
    address.toTextWithPort(text);
    return text;
}

std::string textOf(VELMORA::SinkConfig format) {
    return std::string(sampleFormatName(format)) + ", " + std::to_string(format.channels()) +
           " channels, " + std::to_string(format.rate()) + " Hz";
}

}  // namespace

Sink::Sink(const TargetSettings& settings, std::uint16_t sinkNo, const MakeOutput& makeOutput)
    : settings_(settings), sinkNo_(sinkNo), makeOutput_(makeOutput), negotiation_(settings) {}

std::optional<ZENNO::Bytes> Sink::onPacket(const Arrival& arrival, const PacketView& packet,
                                           Mail& out) {
    const bool ownHost = stream_ && stream_->host() == arrival.from;
    switch (packet.id()) {
        case STREAM_DATA::id:
            // Audio comes to the port that CONNECT_ANS named; from anybody else it is noise.
            if (ownHost && arrival.localPort == sink().streamPort) {
                stream_->onData(arrival, packet, out);
            }
            return std::nullopt;
        case CONNECTPRE_REQ::id:
            if (isBusyFor(arrival.from, arrival.now)) return refusal(CONNECTPRE_ANS::id);
            return negotiation_.answer(packet, arrival.from);
        case CONNECT_REQ::id:
            return connect(arrival, VELMORA::SinkConfig(packet.arg64()), out);
        case DSICONNECT_REQ::id:
            // Without a stream there is nothing to end: a host whose answer was lost asks again.
            if (stream_ && !ownHost) return refusal(DSICONNECT_ANS::id);
            endStream("disconnected", out);
            return write(DSICONNECT_ANS{});
        default:
            return negotiation_.answer(packet, arrival.from);
    }
}

bool Sink::isBusyFor(const ZENNO::IPAddress& host, std::uint64_t now) const {
    return stream_ && stream_->host() != host && stream_->silentFor(now) < giveWayAfter;
}

ZENNO::Bytes Sink::connect(const Arrival& arrival, VELMORA::SinkConfig format, Mail& out) {
    const ZENNO::Bytes no = refusal(CONNECT_ANS::id);
    if (isBusyFor(arrival.from, arrival.now)) {
        out.lines.push_back("refused " + textOf(arrival.from) + ": sink " +
                            std::to_string(sinkNo_) + " is in use");
        return no;
    }
    if (!settings_.formats.takes(format)) {
        out.lines.push_back("refused " + textOf(arrival.from) + ": no such format, " +
                            textOf(format));
        return no;
    }
    CONNECT_ANS yes;
    yes.streamPort = sink().streamPort;
    yes.wantsInvert = settings_.phaseInvert;
    // Our answer was lost: the same stream, answered again.
    if (stream_ && stream_->host() == arrival.from && !stream_->hasData() &&
        stream_->format() == format) {
        yes.wantsInvert = stream_->wantsInvert();
        return write(yes);
    }
    endStream("replaced", out);

    ending_.reset();  // waits a little for the last notes: the device may be the same
    std::unique_ptr<AudioOutput> output = makeOutput_(settings_.output, sinkNo_);
    const std::string failure = output->open(format);
    if (!failure.empty()) {
        out.lines.push_back("refused " + textOf(arrival.from) + ": " + failure);
        return no;
    }
    const auto prelude = negotiation_.takePrelude(arrival.from);
    const Stream::Opening opening{sinkNo_, sink().streamPort, arrival.from, prelude.name,
                                  format,  prelude.latency,   arrival.now};
    stream_.emplace(settings_, opening, std::move(output));
    out.lines.push_back("sink " + std::to_string(sinkNo_) + " connected to " +
                        textOf(arrival.from) + " (" + prelude.name + "): " + textOf(format) +
                        ", latency " + std::to_string(prelude.latency * 100) + " us");
    return write(yes);
}

void Sink::onTime(std::uint64_t now, Mail& out) {
    if (ending_ && !ending_->stillPlays(now)) ending_.reset();
    if (!stream_) return;
    stream_->onTime(now, out);
    // Its host hears no more of us, and takes that for what it is.
    if (stream_->outputHasGone()) return endStream("output gone", out);
    if (stream_->silentFor(now) >= settings_.silenceLimit) endStream("timeout", out);
}

std::uint64_t Sink::nextTime(std::uint64_t now) const {
    const std::uint64_t ending = ending_ ? now + endingTick : ~0ull;
    return stream_ ? std::min(ending, stream_->nextTime(now)) : ending;
}

void Sink::endStream(const std::string& reason, Mail& out) {
    if (!stream_) return;
    ended_.push_back(stream_->end(reason, out));
    ending_ = stream_->takeOutput();
    stream_.reset();
    const Figures& f = ended_.back();
    out.lines.push_back(
        "sink " + std::to_string(sinkNo_) + " " + reason + ": " + std::to_string(f.packets) +
        " packets, " + std::to_string(f.frames) + " frames, " + std::to_string(f.recovered) +
        " recovered, " + std::to_string(f.lost) + " lost, " + std::to_string(f.underruns) +
        " underruns" +
        (f.deviceUnderruns == 0 ? std::string()
                                : ", " + std::to_string(f.deviceUnderruns) + " of the device"));
}

std::string Sink::describe() const {
    if (!stream_) return "idle";
    return textOf(stream_->format()) + ", from " + textOf(stream_->host());
}

std::optional<Figures> Sink::figures() const {
    return stream_ ? std::optional(stream_->figures()) : std::nullopt;
}

std::vector<Figures> Sink::takeEnded() {
    return std::exchange(ended_, {});
}

}  // namespace velmora_target
