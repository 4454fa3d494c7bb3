#include "find/Exchange.h"

#include <utility>

#include "base/LogLine.h"
#include "wire/Packet.h"

namespace VELMORA {

int Listening::wait() {
    const int result = link_.waitReadable(left_);
    if (result != ZENNO::waitReady) return result;
    left_ = time_.left();
    if (left_ == 0 && late_++ == lateDatagrams) return ZENNO::waitTimedOut;
    return result;
}

int sendAck(ZENNO::Link& socket, ZENNO::Clock& clock, const ZENNO::IPAddress& dest,
            const ZENNO::Bytes& message, std::uint32_t answerId, ZENNO::Bytes& answer) {
    answer.clear();
    if (message.size() < wire::headerBytes) return ackSocketFailed;  // no datagram of ours
    const std::uint16_t requestId = wire::load16(message, 4);
    if (!socket.sendDatagramTo(message, dest, /*retry=*/true)) return ackSocketFailed;

    Listening listening(socket, clock, ackWait);
    ZENNO::Bytes datagram;
    for (;;) {
        const int ready = listening.wait();
        if (ready == ZENNO::waitTimedOut) return ackSilent;
        if (ready != ZENNO::waitReady) return ackSocketFailed;
        ZENNO::IPAddress sender;
        if (!socket.receiveFrom(datagram, sender)) return ackSocketFailed;
        const auto packet = wire::readPacket(datagram);
        if (!packet) continue;
        ZENNO::LogLine(7) << "sendAck[" << socket.fixedScope() << "," << dest.scope << ","
                          << sender.scope << "]RCV:" << requestId;

        // The echo is tested first: who sends requests back never counts as having answered. A
        // refusal is taken from anyone, an acceptance only from the one that was asked.
        if (packet->id() == requestId) return ackEcho;
        if (packet->id() != answerId) continue;
        if (!packet->accepted()) {
            answer = std::move(datagram);
            return ackRefused;
        }
        if (sender == dest) {
            answer = std::move(datagram);
            return ackAccepted;
        }
    }
}

}  // namespace VELMORA
