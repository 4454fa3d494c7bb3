// All messages as a list of types, so that a test can walk every reader there is.
#pragma once

#include <array>
#include <cstdint>

#include "wire/DiscoveryMessage.h"

namespace velmora_test {

namespace w = VELMORA::wire;

template <class... Ms>
struct MessageList {
    static constexpr std::array<std::uint16_t, sizeof...(Ms)> ids = {Ms::id...};

    // Calls visit.template operator()<M>() for every message M.
    template <class Visit>
    static void each(Visit&& visit) {
        (visit.template operator()<Ms>(), ...);
    }
    // How many readers take the packet.
    static int takers(const w::PacketView& packet) {
        return (0 + ... + (w::read<Ms>(packet).has_value() ? 1 : 0));
    }
};

using AllMessages =
    MessageList<w::SUPPORT_REQ, w::SUPPORT_ANS, w::LATENCY_REQ, w::LATENCY_ANS, w::DATASIZE_REQ,
                w::DATASIZE_ANS, w::PROFILE_REQ, w::PROFILE_ANS, w::NOPBREAK_REQ, w::CONNECTPRE_REQ,
                w::CONNECTPRE_ANS, w::CLIENT_REQ, w::CLIENT_ANS, w::CONNECT_REQ, w::CONNECT_ANS,
                w::DSICONNECT_REQ, w::DSICONNECT_ANS, w::STREAM_DATA, w::INFO_ANS, w::LOG_REQ,
                w::LOG_ANS, w::FIND_REQ, w::FIND_ANS, w::SINK_REQ, w::SINK_ANS, w::CONFIG_REQ,
                w::CONFIG_ANS, w::HELLO_REQ, w::HELLO_ANS, w::NOTIFY, w::TRANSFER_REQ,
                w::TRANSFER_ANS, w::TRANSFER_DATA, w::TRANSFER_ACK, w::TRANSFEREND_REQ,
                w::TRANSFEREND_ANS, w::INFOA_REQ, w::INFOA_ANS, w::INFOB_REQ, w::INFOB_ANS,
                w::VALUE_REQ, w::VALUE_ANS, w::INFOINDEX_REQ, w::INFOINDEX_ANS, w::ITEM_REQ,
                w::ITEM_ANS, w::ITEMVALUE_REQ, w::ITEMVALUE_ANS>;

}  // namespace velmora_test
