#include "apps/velmora-find/Examination.h"

#include <algorithm>

#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/Target.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_find {
namespace {

namespace wire = VELMORA::wire;
using ZENNO::Bytes;
using ZENNO::IPAddress;
using ZENNO::Link;

constexpr int passes = 3;                    // as the search has them
constexpr std::uint32_t passWait = 30'000;   // µs, the same
constexpr std::uint32_t lateWait = 500'000;  // µs more, which only this look has
constexpr int longTries = 2;

// Hands every datagram that comes within the time to `take`.
template <class Take>
void listen(Link& link, ZENNO::Clock& clock, std::uint32_t micros, Take take) {
    VELMORA::Listening listening(link, clock, micros);
    while (listening.wait() == ZENNO::waitReady) {
        Bytes datagram;
        IPAddress sender;
        if (!link.receiveFrom(datagram, sender)) return;
        if (datagram.empty()) continue;  // nobody's, or a read that came to nothing
        if (!take(sender, datagram)) return;
    }
}

// Of the last call that failed. One without a number, as a short send, has failed as well.
std::int32_t errorOf(const Link& link) {
    return link.lastError() != 0 ? link.lastError() : -1;
}

void askEverybody(Link& link, ZENNO::Clock& clock, ExaminedInterface& there) {
    const IPAddress group = IPAddress::allNodes(wire::ControlPort, there.number);
    bool sent = false;
    const auto hear = [&](bool late) {
        return [&there, late](const IPAddress& sender, const Bytes& datagram) {
            const auto packet = wire::readPacket(datagram);
            if (!packet || packet->id() != wire::FIND_ANS::id) {
                ++there.strays;
                return true;
            }
            if (there.targets.size() >= VELMORA::mostAnswers) return true;
            const auto [entry, isNew] = there.targets.try_emplace(sender);
            ExaminedTarget& target = entry->second;
            if (isNew) target.late = late;
            target.refused = !packet->accepted();
            target.product = packet->arg64();
            target.name = packet->text();
            return true;
        };
    };
    for (int pass = 0; pass < passes; ++pass) {
        if (link.sendDatagramTo(write(wire::FIND_REQ{}), group, /*retry=*/false)) {
            sent = true;
        } else {
            there.sendError = errorOf(link);
        }
        listen(link, clock, passWait, hear(/*late=*/false));
    }
    if (sent) {
        there.sendError = 0;
        listen(link, clock, lateWait, hear(/*late=*/true));
    }
}

// A reader goes by the length in the head and ignores what follows it: so a question with bytes
// behind it is answered if it arrives. A late answer is waited for, or it would be taken for the
// one to the next question, which is smaller.
bool answersLong(Link& link, ZENNO::Clock& clock, const IPAddress& target, std::uint32_t bytes) {
    Bytes message = write(wire::FIND_REQ{});
    message.resize(bytes);
    bool answered = false;
    const auto hear = [&](const IPAddress& sender, const Bytes& datagram) {
        const auto packet = wire::readPacket(datagram);
        answered = packet && packet->id() == wire::FIND_ANS::id && sender == target;
        return !answered;
    };
    int sent = 0;
    while (sent < longTries && !answered && link.sendDatagramTo(message, target, /*retry=*/false)) {
        ++sent;
        listen(link, clock, VELMORA::ackWait, hear);
    }
    if (sent != 0 && !answered) listen(link, clock, lateWait, hear);
    return answered;
}

void askOne(Link& link, Context& context, const IPAddress& address, ExaminedTarget& target) {
    target.isOtherProduct =
        VELMORA::filterProduct(asTheDriver(), target.product) == VELMORA::refusedProduct;
    target.wasAsked = true;
    VELMORA::Find find(everybody(), context.environment);
    VELMORA::SinkMap sinks;
    if (find.open(std::list<IPAddress>{address}) && find.getSinks(address, sinks)) {
        for (const auto& [key, sink] : sinks) {
            ++target.sinks;
            if (sink.version > asTheDriver().maxVersion) ++target.sinksTooNew;
        }
    }
    for (const std::uint32_t bytes : datagramSizes) {
        if (!answersLong(link, context.environment.clock(), address, bytes)) continue;
        target.largestAnswered = bytes;
        break;
    }
}

void examineOne(Context& context, ExaminedInterface& there) {
    const auto link = context.environment.makeLink();
    IPAddress own = there.address;
    const bool opened = link->open(ZENNO::SocketKind::udpV6);
    if (!opened) throw Stop{exitNetwork, "The system gives no network socket."};
    if (!link->bindV6(own)) {
        there.bindError = errorOf(*link);
        return;
    }
    // The driver's own socket is tied to no interface.
    IPAddress any;
    if (!link->open(ZENNO::SocketKind::udpV6) || !link->bindV6(any)) {
        there.bindError = errorOf(*link);
        return;
    }
    askEverybody(*link, context.environment.clock(), there);
    const VELMORA::TimeLimit limit(context.environment.clock(), VELMORA::searchLimit);
    for (auto& [address, target] : there.targets) {
        if (limit.passed()) break;
        askOne(*link, context, address, target);
    }
}

// Why an interface without fe80:: is left out, from the addresses that it has.
std::string reason(const std::vector<IPAddress>& addresses) {
    for (const IPAddress& address : addresses) {
        if (address.isLoopback()) return "it is this computer's loopback; targets are elsewhere";
    }
    for (const IPAddress& address : addresses) {
        if ((address.word(0) & 0xffc0) == 0xfe80) {
            return "its address " + addressText(address) +
                   " is link-local, but does not begin with fe80: the driver does not ask there";
        }
    }
    if (addresses.empty()) {
        return "it has no IPv6 address: IPv6 is switched off there, or nothing is plugged in";
    }
    return "it has only the global address " + addressText(addresses.front()) +
           ", and targets are found by fe80:: alone";
}

struct Known {
    std::string name, description;
    std::vector<IPAddress> addresses;
};

std::map<std::uint32_t, Known> everyInterface(Context& context) {
    std::map<std::uint32_t, Known> out;
    const Links links = Links::of(context.environment);
    std::vector<ZENNO::platform::Adapter> adapters;
    if (context.adapters) context.adapters(adapters);  // those without any address besides
    for (const auto& adapter : adapters)
        out[adapter.index] = {adapter.name, adapter.description, {}};
    for (const auto& [address, names] : links.map()) {
        Known& known = out[address.scope];
        known.name = names.name;
        known.description = names.description;
        known.addresses.push_back(address);
    }
    return out;
}

}  // namespace

Examination examine(Context& context, const std::string& interface) {
    Examination out;
    bool isThere = interface.empty();
    for (const auto& [number, known] : everyInterface(context)) {
        const bool isMeant =
            interface.empty() || known.name == interface || std::to_string(number) == interface;
        if (!isMeant) continue;
        isThere = true;
        const auto usable = std::find_if(known.addresses.begin(), known.addresses.end(),
                                         [](const IPAddress& a) { return a.isLinkLocal(); });
        if (usable == known.addresses.end() || number == 0) {
            out.leftOut.push_back({known.name, reason(known.addresses)});
            continue;
        }
        ExaminedInterface& there = out.interfaces.emplace_back();
        there.number = number;
        there.name = known.name;
        there.description = known.description;
        there.address = *usable;
        examineOne(context, there);
    }
    if (!isThere) {
        throw Stop{exitNetwork, "There is no interface \"" + printable(interface) +
                                    "\" here; without --interface the doctor looks at every one."};
    }
    return out;
}

}  // namespace velmora_find
