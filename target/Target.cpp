#include "target/Target.h"

#include <algorithm>

#include "target/Discovery.h"
#include "target/Messages.h"
#include "target/Text.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

// A watching host takes a target for gone that it has not heard of for 30 s.
constexpr std::uint64_t notifyEvery = 10'000'000;

// Of a burst of TRANSFER_DATA only the last one is answered, whatever the answer.
bool isAnswered(const PacketView& packet) {
    return packet.id() != TRANSFER_DATA::id || (packet.arg16(8) & TRANSFER_DATA::lastMark) != 0;
}

}  // namespace

Target::Target(TargetSettings settings, MakeOutput makeOutput, Storage storage)
    : settings_(std::move(settings)),
      items_(settings_, storage.kept, std::move(storage.keep)),
      makeOutput_(std::move(makeOutput)),
      allowed_(settings_.formats),
      transfers_(settings_, std::move(storage.makeInboxItem)),
      info_(settings_, sinks_),
      misbehaviour_(settings_.manners, settings_.seed),
      random_(settings_.seed) {
    for (std::size_t i = 0; i < settings_.sinks.size(); ++i) {
        sinks_.push_back(
            std::make_unique<Sink>(settings_, static_cast<std::uint16_t>(i + 1), makeOutput_));
    }
}

std::string Target::askFormatsBy(AskFormats ask) {
    ask_ = std::move(ask);
    if (askFormats() || items_.isKept("output")) return {};
    return askFailure_;
}

// Whether it could be asked.
bool Target::askFormats() {
    askedOutput_ = settings_.output;
    TakenFormats taken = ask_(settings_.output, allowed_);
    askFailure_ = std::move(taken.failure);
    settings_.formats = askFailure_.empty() ? taken.formats : allowed_;
    return askFailure_.empty();
}

// A device that was not there, or in use, may be had by now.
void Target::askAgain(std::uint64_t now, Mail& out) {
    if (askFailure_.empty() || now < nextAsk_) return;
    nextAsk_ = now + askEvery;
    if (isConnected() || isPlayingOut()) return;
    if (askFormats()) out.lines.push_back(settings_.output + " can be played on now");
}

std::vector<std::string> Target::keptLines() const {
    std::vector<std::string> lines = items_.keptLines();
    if (!askFailure_.empty()) {
        lines.push_back(askFailure_ + " (a host has kept it; it is looked for every 5 s)");
    }
    return lines;
}

void Target::onDatagram(const Arrival& arrival, Mail& out) {
    const auto packet = readPacket(arrival.datagram);
    if (!packet) return;
    const std::uint16_t id = packet->id();
    if (!begun_) begun_ = arrival.now;
    if (isLost(settings_.lost, id, random_) || misbehaviour_.isDead()) return;
    const std::size_t linesBefore = out.lines.size(), before = out.datagrams.size();

    std::optional<ZENNO::Bytes> reply;
    if (settings_.refused.contains(id) && id != STREAM_DATA::id) {
        const auto message = messageOf(id);
        if (message && isAnswered(*packet)) reply = refusal(message->answer);
    } else {
        reply = answer(arrival, *packet, out);
    }
    if (reply && !settings_.silent.contains(id) && !isLost(settings_.lostAnswers, id, random_)) {
        out.datagrams.push_back({arrival.localPort, arrival.from, std::move(*reply)});
    }
    misbehaviour_.spoil(&*packet, portBeside(arrival.localPort), out, before);
    if (items_.takeChanged()) {
        if (ask_ && settings_.output != askedOutput_) {
            if (!askFormats()) out.lines.push_back(askFailure_);
            nextAsk_ = arrival.now + askEvery;
        }
        nextNotify_ = arrival.now;
        announce(arrival.now, out);
    }
    tellReaders(out, linesBefore);
}

std::optional<ZENNO::Bytes> Target::answer(const Arrival& arrival, const PacketView& packet,
                                           Mail& out) {
    if (arrival.localPort != ControlPort) {
        Sink* sink = sinkAt(arrival.localPort);
        if (sink == nullptr) return std::nullopt;
        auto reply = sink->onPacket(arrival, packet, out);
        if (packet.id() == STREAM_DATA::id && sink->isConnected()) {
            misbehaviour_.onAudio(arrival, packet, out);
        }
        return reply;
    }
    return answerControl(arrival, packet, out);
}

std::optional<ZENNO::Bytes> Target::answerControl(const Arrival& arrival, const PacketView& packet,
                                                  Mail& out) {
    // The log has its port in common with the control port.
    if (packet.id() == LOG_REQ::id) {
        return log_.onRequest(arrival.from, packet.arg16(8) != 0);
    }
    if (packet.id() == HELLO_REQ::id && !packet.text().empty()) {
        out.lines.push_back("asked for by " + shownText(packet.text()));
    }
    auto reply = transfers_.answer(arrival, packet, out);
    if (!reply) reply = items_.answer(packet, arrival.now, out);
    if (!reply) reply = info_.answer(packet, arrival.now - *begun_, out);
    return reply ? std::move(reply) : answerDiscovery(settings_, packet);
}

Sink* Target::sinkAt(std::uint16_t port) {
    const auto found = std::find_if(sinks_.begin(), sinks_.end(),
                                    [port](const auto& sink) { return sink->hasPort(port); });
    return found == sinks_.end() ? nullptr : found->get();
}

std::uint16_t Target::portBeside(std::uint16_t port) const noexcept {
    return port != ControlPort || settings_.sinks.empty() ? ControlPort : settings_.sinks[0].port;
}

void Target::onTime(std::uint64_t now, Mail& out) {
    if (!begun_) begun_ = now;
    const std::size_t linesBefore = out.lines.size(), before = out.datagrams.size();
    for (const auto& sink : sinks_) sink->onTime(now, out);
    items_.onTime(now);
    transfers_.onTime(now, out);
    askAgain(now, out);
    announce(now, out);
    misbehaviour_.spoil(nullptr, ControlPort, out, before);
    tellReaders(out, linesBefore);
}

void Target::announce(std::uint64_t now, Mail& out) {
    if (!announces() || now < nextNotify_) return;
    nextNotify_ = now + notifyEvery;
    if (settings_.silent.contains(NOTIFY::id)) return;
    for (const std::uint32_t scope : scopes_) {
        if (isLost(settings_.lostAnswers, NOTIFY::id, random_)) continue;
        out.datagrams.push_back({ControlPort, ZENNO::IPAddress::allNodes(NotifyPort, scope),
                                 write(NOTIFY{notifyWord_})});
    }
    // Word 0 says that the target has just come up; it is not said again.
    notifyWord_ =
        notifyWord_ == 0xffff ? std::uint16_t{1} : static_cast<std::uint16_t>(notifyWord_ + 1);
}

std::uint64_t Target::nextTime(std::uint64_t now) const {
    std::uint64_t next = announces() ? nextNotify_ : ~0ull;
    if (!askFailure_.empty()) next = std::min(next, nextAsk_);
    next = std::min({next, items_.nextTime(), transfers_.nextTime()});
    for (const auto& sink : sinks_) next = std::min(next, sink->nextTime(now));
    return next;
}

void Target::endStreams(const std::string& reason, Mail& out) {
    const std::size_t linesBefore = out.lines.size();
    for (const auto& sink : sinks_) sink->endStream(reason, out);
    transfers_.endAll(reason, out);
    tellReaders(out, linesBefore);
}

void Target::tellReaders(Mail& out, std::size_t from) {
    if (misbehaviour_.isDead()) return;
    const std::size_t before = out.datagrams.size();
    for (std::size_t i = from; i < out.lines.size(); ++i) {
        log_.tell(out.lines[i], ControlPort, out);
    }
    misbehaviour_.spoil(nullptr, portBeside(ControlPort), out, before);
}

bool Target::isConnected() const {
    return std::any_of(sinks_.begin(), sinks_.end(),
                       [](const auto& sink) { return sink->isConnected(); });
}

bool Target::isPlayingOut() const {
    return std::any_of(sinks_.begin(), sinks_.end(),
                       [](const auto& sink) { return sink->isPlayingOut(); });
}

std::vector<Figures> Target::figures() const {
    std::vector<Figures> all;
    for (const auto& sink : sinks_) {
        if (const auto figures = sink->figures()) all.push_back(*figures);
    }
    return all;
}

std::vector<Figures> Target::takeEnded() {
    std::vector<Figures> all;
    for (const auto& sink : sinks_) {
        for (Figures& figures : sink->takeEnded()) all.push_back(std::move(figures));
    }
    return all;
}

}  // namespace velmora_target
