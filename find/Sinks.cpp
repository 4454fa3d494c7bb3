// The questions that one target is asked. Silence, a refusal or an echo is no failure: only the
// socket's own is, and an accepted answer to NOPBREAK_REQ.
#include "base/LogLine.h"
#include "find/Find.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::Bytes;
using ZENNO::IPAddress;
using ZENNO::LogLine;

}  // namespace

bool Find::ping(const IPAddress& address) {
    Bytes answer;
    return ask(address, wire::FIND_REQ{}, answer) == ackAccepted;
}

bool Find::hello(const IPAddress& address) {
    Bytes answer;
    const wire::HELLO_REQ request{.ownID = setting_.ownID, .clientName = setting_.clientName};
    return ask(address, request, answer) != ackSocketFailed;
}

// The probe that goes ahead of every SINK_REQ when the setting asks for it. Only its acceptance
// stops the caller; whatever else comes, a failing socket too, the SINK_REQ follows.
bool Find::mayAskForSinks(const IPAddress& address) {
    Bytes answer;
    return !setting_.nopBreak || ask(address, wire::NOPBREAK_REQ{}, answer) != ackAccepted;
}

bool Find::getSinkCount(const IPAddress& address, std::uint16_t& count, std::uint16_t& second) {
    count = 0;
    second = 0;
    if (!mayAskForSinks(address)) return false;
    Bytes answer;
    const int result = ask(address, wire::SINK_REQ{.sinkNo = 0}, answer);
    if (result == ackSocketFailed) return false;
    if (result != ackAccepted) return true;
    const auto sink = wire::readPacket(answer);
    if (sink->arg16(12) == 0) count = sink->arg16(8);
    return true;
}

bool Find::getSink(const IPAddress& address, std::uint16_t sinkNo, IPAddress& out,
                   std::uint16_t& version, std::string& name) {
    out = {};
    if (!mayAskForSinks(address)) return false;
    Bytes answer;
    const int result = ask(address, wire::SINK_REQ{.sinkNo = sinkNo}, answer);
    if (result == ackSocketFailed) return false;
    if (result != ackAccepted) return true;
    const auto sink = wire::readPacket(answer);
    const std::uint16_t port = sink->arg16(12);
    if (port == 0) return true;
    version = sink->arg16(14);
    name = sink->text();
    if (setting_.maxVersion != 0 && setting_.maxVersion < version) {
        LogLine(6) << "Velmora Find protocol version not much : " << setting_.maxVersion << "<"
                   << version;
        return true;
    }
    out = address;
    out.setPortNumber(port);
    return true;
}

// Sinks 1 to `count`, those that are there. A count of tens of thousands, each answered late or
// never, would hold the caller for hours: the walk has a limit, and is not whole then.
bool Find::walkSinks(const IPAddress& address, std::uint16_t count, const TakeSink& take,
                     bool& isWhole) {
    const TimeLimit walk(environment_.clock(), sinkWalkLimit);
    isWhole = false;
    for (std::uint32_t no = 1; no <= count; ++no) {
        if (walk.passed()) return true;
        FoundSink sink;
        sink.sinkNo = static_cast<std::uint16_t>(no);
        IPAddress key;
        if (!getSink(address, sink.sinkNo, key, sink.version, sink.name)) return false;
        if (!key.isNone()) take(key, std::move(sink));
    }
    isWhole = true;
    return true;
}

bool Find::readSinks(const IPAddress& address, SinkMap& sinks, bool& isWhole) {
    std::uint16_t count = 0, second = 0;
    if (!getSinkCount(address, count, second)) return false;
    return walkSinks(
        address, count,
        [&](const IPAddress& key, FoundSink&& sink) { sinks[key] = std::move(sink); }, isWhole);
}

bool Find::getSinks(const IPAddress& address, SinkMap& sinks) {
    bool isWhole = false;
    return readSinks(address, sinks, isWhole);
}

bool Find::identify(const IPAddress& address, std::uint64_t& product, std::string& name) {
    Bytes answer;
    const int result = ask(address, wire::FIND_REQ{}, answer);
    if (result == ackSocketFailed) return false;
    if (!hello(address)) return false;
    if (result != ackAccepted) {
        product = refusedProduct;
        return true;
    }
    const auto target = wire::readPacket(answer);
    product = filterProduct(target->arg64());
    name = target->text();
    return true;
}

// `answered` and `text` when the target gave its configuration; false is the socket's failure.
bool Find::askConfig(const IPAddress& address, bool& answered, std::string& text) {
    Bytes answer;
    const int result = ask(address, wire::CONFIG_REQ{}, answer);
    answered = result == ackAccepted;
    if (answered) {
        const auto config = wire::readPacket(answer);
        text = wire::replaceMyAddress(std::string(config->text()), address);
    }
    return result != ackSocketFailed;
}

}  // namespace VELMORA
