// The packet reader: what it takes lies within the datagram, and header and payload written again
// are read as the same packet.
#include "wire/Packet.h"

#include <algorithm>

#include "fuzz/Fuzz.h"

using namespace VELMORA::wire;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto packet = readPacket(ConstBytes(data, size));
    if (!packet) return 0;
    const ConstBytes payload = packet->payload();
    require(headerBytes + payload.size() <= size);
    require(packet->text().size() == payload.size());

    const auto bytes = makePacket(packet->id(), packet->flags(), argOf(packet->arg64()), payload);
    const auto again = readPacket(bytes);
    require(again.has_value());
    require(again->id() == packet->id() && again->flags() == packet->flags());
    require(again->arg64() == packet->arg64() && again->arg16(14) == packet->arg16(14));
    require(std::ranges::equal(again->payload(), payload));
    return 0;
}
