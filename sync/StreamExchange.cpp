#include "sync/StreamExchange.h"

#include <algorithm>

#include "base/LogLine.h"
#include "wire/Packet.h"

namespace VELMORA {

using ZENNO::hasReached;
using ZENNO::IPAddress;
using ZENNO::LogLine;

namespace {

enum class Verdict { passOver, useless, answer };

Verdict judge(const ZENNO::Link& link, const ZENNO::Bytes& datagram, const IPAddress& from,
              const IPAddress& to, std::uint16_t requestId, std::uint16_t answerId) {
    const auto packet = wire::readPacket(datagram);
    if (!packet) {
        LogLine(7) << "sendAck RCV errpacket:" << static_cast<std::uint64_t>(datagram.size());
        return Verdict::passOver;
    }
    if (!isFrom(link, from, to)) return Verdict::passOver;
    LogLine(7) << "sendAck[" << link.fixedScope() << "," << to.scope << "," << from.scope
               << "]RCV:" << packet->id();
    if (packet->id() == requestId) return Verdict::useless;
    if (packet->id() != answerId) return Verdict::passOver;
    return packet->accepted() ? Verdict::answer : Verdict::useless;
}

}  // namespace

bool isFrom(const ZENNO::Link& link, const IPAddress& from, const IPAddress& to) noexcept {
    if (from.address != to.address || from.port != to.port) return false;
    if (link.fixedScope() == 0) return from.scope == to.scope;
    return from.scope == 0 || from.scope == link.fixedScope();
}

bool sendAck(ZENNO::Link& link, ZENNO::Clock& clock, const IPAddress& to,
             const ZENNO::Bytes& request, std::uint16_t answerId, ZENNO::Bytes& answer,
             const std::uint32_t& waitMicros) {
    answer.clear();
    const std::uint16_t requestId = wire::load16(request, 4);
    const auto patience = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        std::uint64_t{waitMicros} * exchangeTries + exchangePatience, 0x7fffffff));
    const std::uint32_t begin = clock.now();

    ZENNO::Bytes datagram;
    for (int tries = 0; tries < exchangeTries; ++tries) {
        if (!link.sendDatagramTo(request, to, /*retry=*/true)) return false;
        for (;;) {
            const int ready = link.waitReadable(waitMicros);
            if (ready == ZENNO::waitError) return false;
            if (ready == ZENNO::waitTimedOut) {
                // Silence behind a flood has only what is left of the patience with it.
                if (hasReached(clock.now() - begin, patience)) return true;
                break;
            }

            IPAddress from;
            if (!link.receiveFrom(datagram, from)) return false;
            switch (judge(link, datagram, from, to, requestId, answerId)) {
                case Verdict::answer:
                    answer = std::move(datagram);
                    return true;
                case Verdict::useless:
                    return true;
                case Verdict::passOver:
                    break;
            }
            if (hasReached(clock.now() - begin, patience)) return true;
        }
    }
    return true;
}

}  // namespace VELMORA
