#include "bench/Responder.h"

#include "src/Network/Environment.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_bench {

namespace wire = VELMORA::wire;

int respond() {
    const auto link = ZENNO::systemEnvironment().makeLink();
    ZENNO::IPAddress local{};
    local.setPortNumber(responderPort);
    if (!link->open(ZENNO::SocketKind::udpV6) || !link->bindV6(local)) return 2;
    ZENNO::Bytes datagram;
    ZENNO::IPAddress from;
    for (;;) {
        if (link->waitReadable(1'000'000) != ZENNO::waitReady) continue;
        if (!link->receiveFrom(datagram, from) || datagram.size() < wire::headerBytes) continue;
        if (wire::load16(datagram, 4) != wire::TRANSFER_DATA::id) continue;
        if ((wire::load16(datagram, 8) & wire::TRANSFER_DATA::lastMark) == 0) continue;
        const wire::TRANSFER_ACK ack{.channel = 1, .seq = wire::load16(datagram, 10)};
        link->sendDatagramTo(write(ack), from, /*retry=*/true);
    }
}

}  // namespace velmora_bench
