// Asking everybody on the link, and what follows from their answers.
#include "base/LogLine.h"
#include "find/Find.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::Bytes;
using ZENNO::IPAddress;
using ZENNO::LogLine;

constexpr std::uint32_t multiWait = 30'000;  // µs, for each interface and pass
constexpr int multiPasses = 3;

}  // namespace

bool Find::sendMulti(const Bytes& message, std::map<IPAddress, Bytes>& acks) {
    for (const IPAddress& interface : getInterfaces()) {
        LogLine(7) << "Find Multi Send : " << interface.scope;
        // A send that fails leaves its error in lastError and stops nothing: the other interfaces
        // may work, and another pass follows.
        socket_->sendDatagramTo(message, IPAddress::allNodes(wire::ControlPort, interface.scope),
                                /*retry=*/false);
        for (const IPAddress& extra : extraAddresses) {
            socket_->sendDatagramTo(message, extra, /*retry=*/false);
        }
        if (!receiveAnswers(acks)) return false;
    }
    return true;
}

bool Find::receiveAnswers(std::map<IPAddress, Bytes>& acks) {
    Listening listening(*socket_, environment_.clock(), multiWait);
    for (;;) {
        const int ready = listening.wait();
        if (ready == ZENNO::waitTimedOut) return true;
        if (ready != ZENNO::waitReady) return false;
        Bytes datagram;
        IPAddress sender;
        if (!socket_->receiveFrom(datagram, sender)) return false;
        LogLine(7) << "Find Multi Ack Rcv : " << static_cast<std::uint64_t>(datagram.size());
        const auto packet = wire::readPacket(datagram);
        if (!packet || packet->id() != wire::FIND_ANS::id || !packet->accepted()) continue;
        if (ZENNO::logLevelEnabled(7)) {
            LogLine(7) << "FindMultiAck[" << socket_->fixedScope() << "," << sender.scope
                       << "]Valid : " << sender.text();
        }
        if (acks.size() >= mostAnswers && !acks.contains(sender)) continue;
        acks[sender] = std::move(datagram);
    }
}

bool Find::findMulti(FoundMap& found, std::uint8_t mode) {
    std::map<IPAddress, Bytes> acks;
    for (int pass = 0; pass < multiPasses; ++pass) {
        if (!sendMulti(wire::write(wire::FIND_REQ{.mode = mode}), acks)) return false;
    }
    const TimeLimit limit(environment_.clock(), greetingLimit);
    for (const auto& [sender, datagram] : acks) {
        // Ahead of the filter: a target that is refused has been greeted all the same.
        if (!limit.passed() && !hello(sender)) return false;
        const auto answer = wire::readPacket(datagram);
        const std::uint64_t product = filterProduct(answer->arg64());
        if (product == refusedProduct) continue;
        found[sender] = {product, std::string(answer->text())};
    }
    return true;
}

bool Find::search(TargetMap& out) {
    out.clear();
    FoundMap found;
    if (!findMulti(found, 0)) return false;
    const TimeLimit limit(environment_.clock(), searchLimit);
    for (const auto& [address, target] : found) {
        if (limit.passed() || out.size() >= mostSinks) break;
        if (!searchTarget(address, target, out)) return false;
    }
    return true;
}

bool Find::searchTarget(const IPAddress& address, const FoundTarget& target, TargetMap& out) {
    if (!hello(address)) return false;  // the second time: targets in the field expect both
    std::uint16_t count = 0, second = 0;
    if (!getSinkCount(address, count, second)) return false;
    bool hasConfig = false;
    std::string config;  // stays empty where the target gives none; it is served all the same
    if (!askConfig(address, hasConfig, config)) return false;
    const TakeSink take = [&](const IPAddress& key, FoundSink&& sink) {
        TargetInfo& info = out[key];
        info.productID = target.product;
        info.reserved = 0;
        info.sinkNo = sink.sinkNo;
        info.version = sink.version;
        info.targetName = target.name;
        info.configText = config;
        info.findAddress = address;
        info.sinkName = std::move(sink.name);
        LogLine(6) << "Velmora Find Sink Out: " << info.targetName << " " << info.sinkNo << " "
                   << info.version << " [" << info.findAddress.scope << "]";
    };
    bool isWhole = false;  // what was walked is good, all or not
    return walkSinks(address, count, take, isWhole);
}

bool Find::reFind(const IPAddress& address, std::uint16_t sinkNo, IPAddress& outAddress,
                  TargetInfo& info) {
    IPAddress target = address;
    target.setPortNumber(wire::ControlPort);
    outAddress = {};
    std::uint16_t version = 0;
    std::string sinkName;  // not handed on
    for (const IPAddress& interface : getInterfaces()) {
        target.scope = interface.scope;
        if (!getSink(target, sinkNo, outAddress, version, sinkName)) return false;
        if (!outAddress.isNone()) break;
    }
    if (outAddress.isNone()) return true;
    info.sinkNo = sinkNo;
    info.reserved = 0;
    info.version = version;
    info.findAddress = target;

    // The filter is not asked and the product not set: a target that was chosen by its address is
    // taken whatever it is.
    Bytes answer;
    const int result = ask(target, wire::FIND_REQ{}, answer);
    if (result == ackSocketFailed) return false;
    if (result == ackAccepted) info.targetName = wire::readPacket(answer)->text();

    bool hasConfig = false;
    std::string config;
    if (!askConfig(target, hasConfig, config)) return false;
    if (hasConfig) info.configText = std::move(config);
    return true;
}

}  // namespace VELMORA
