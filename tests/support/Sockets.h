// Sockets on the loopback address, ready for use.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include "src/Network/Socket.h"

namespace velmora_test {

constexpr std::uint32_t patience = 5'000'000;  // µs that a wait may take before a test gives up

inline ZENNO::Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

// A datagram socket on ::1 with a port of its own.
struct LoopbackSocket {
    ZENNO::Socket socket;
    ZENNO::IPAddress address = ZENNO::IPAddress::loopbackV6();

    explicit LoopbackSocket(ZENNO::SocketKind kind = ZENNO::SocketKind::udpV6) {
        EXPECT_TRUE(socket.open(kind));
        EXPECT_TRUE(socket.bindV6(address)) << socket.lastError();
    }
};

// The next datagram; empty, and a failure, when none comes.
inline ZENNO::Bytes nextDatagram(ZENNO::Link& link, ZENNO::IPAddress& from) {
    ZENNO::Bytes data;
    EXPECT_EQ(link.waitReadable(patience), ZENNO::waitReady);
    EXPECT_TRUE(link.receiveFrom(data, from));
    return data;
}

}  // namespace velmora_test
