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

// Datagrams read at most before a request goes out, some milliseconds' worth of reading.
constexpr int mostBacklog = 4096;

// What one exchange makes of the datagrams that come.
class Listener {
public:
    Listener(ZENNO::Link& link, const IPAddress& to, const ZENNO::Bytes& request,
             std::uint16_t answerId, ZENNO::Bytes& answer)
        : link_(link),
          to_(to),
          requestId_(wire::load16(request, 4)),
          answerId_(answerId),
          answer_(answer) {}

    // Reads one; an answer is handed out. False: the read failed, and `verdict` is as it was.
    bool read(Verdict& verdict) {
        IPAddress from;
        if (!link_.receiveFrom(datagram_, from)) return false;
        verdict = judge(from);
        if (verdict == Verdict::answer) answer_ = std::move(datagram_);
        return true;
    }

    // What lies there before the request goes out: left in the socket's buffer it could keep the
    // answer out, and that would be missed only after a silent wait. An answer from before counts
    // like one that comes.
    Verdict readBacklog() {
        Verdict verdict = Verdict::passOver;
        for (int i = 0; i < mostBacklog && verdict == Verdict::passOver; ++i) {
            if (link_.poll() != ZENNO::waitReady || !read(verdict)) break;
        }
        return verdict;
    }

private:
    Verdict judge(const IPAddress& from) const {
        const auto packet = wire::readPacket(datagram_);
        if (!packet) {
            LogLine(7) << "sendAck RCV errpacket:" << static_cast<std::uint64_t>(datagram_.size());
            return Verdict::passOver;
        }
        if (!isFrom(link_, from, to_)) return Verdict::passOver;
        LogLine(7) << "sendAck[" << link_.fixedScope() << "," << to_.scope << "," << from.scope
                   << "]RCV:" << packet->id();
        if (packet->id() == requestId_) return Verdict::useless;
        if (packet->id() != answerId_) return Verdict::passOver;
        return packet->accepted() ? Verdict::answer : Verdict::useless;
    }

    ZENNO::Link& link_;
    const IPAddress& to_;
    std::uint16_t requestId_, answerId_;
    ZENNO::Bytes& answer_;
    ZENNO::Bytes datagram_;
};

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
    const auto patience = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        std::uint64_t{waitMicros} * exchangeTries + exchangePatience, 0x7fffffff));
    const std::uint32_t begin = clock.now();

    Listener listener(link, to, request, answerId, answer);
    Verdict verdict = listener.readBacklog();
    for (int tries = 0; tries < exchangeTries; ++tries) {
        if (!link.sendDatagramTo(request, to, /*retry=*/true)) {
            answer.clear();
            return false;
        }
        for (;;) {
            if (verdict != Verdict::passOver) return true;
            const int ready = link.waitReadable(waitMicros);
            if (ready == ZENNO::waitError) return false;
            if (ready == ZENNO::waitTimedOut) {
                // Silence behind a flood has only what is left of the patience with it.
                if (hasReached(clock.now() - begin, patience)) return true;
                break;
            }
            if (!listener.read(verdict)) return false;
            if (verdict == Verdict::passOver && hasReached(clock.now() - begin, patience)) {
                return true;
            }
        }
    }
    return true;
}

}  // namespace VELMORA
