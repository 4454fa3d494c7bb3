// A message that is read must be written so that it is read as itself again.
#pragma once

#include "fuzz/Fuzz.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_fuzz {

namespace w = VELMORA::wire;

template <class M>
void roundTrip(const w::PacketView& packet) {
    const std::optional<M> message = w::read<M>(packet);
    require(message.has_value() == (packet.id() == M::id));
    if (!message) return;
    const ZENNO::Bytes bytes = [&] {
        if constexpr (requires { write(*message); }) {
            return write(*message);
        } else if constexpr (requires { write(*message, packet.payload()); }) {
            return write(*message, packet.payload());
        } else {
            ZENNO::Bytes header(w::headerBytes);
            writeStreamHeader(header, *message, 0);
            return header;
        }
    }();
    const auto again = w::readPacket(bytes);
    require(again.has_value());
    require(w::read<M>(*again) == message);
}

template <class... Ms>
int roundTripAll(const std::uint8_t* data, std::size_t size) {
    if (const auto packet = w::readPacket(w::ConstBytes(data, size))) (roundTrip<Ms>(*packet), ...);
    return 0;
}

}  // namespace velmora_fuzz
