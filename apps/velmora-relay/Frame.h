// Ethernet frames with a UDP datagram over IPv6: found, spoiled, and made.
//
//   0      6      12    14          20   21    22    38    54        62
//   | to   | from | 86dd| version.. | 17 | hops| from| to  | UDP     | payload
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <span>

#include "base/BufferCS.h"

namespace velmora_relay {

using ConstBytes = std::span<const std::uint8_t>;

constexpr std::size_t ipAt = 14, udpAt = ipAt + 40, payloadAt = udpAt + 8;

// Bytes of the datagram's payload; nothing for what is no whole UDP datagram over IPv6. A fragment
// or a datagram behind further headers is none.
std::optional<std::size_t> udpPayload(ConstBytes frame) noexcept;

// Of frames with a UDP datagram alone. A local sender may have left its checksum to a device that
// is not there.
std::uint16_t udpChecksum(ConstBytes frame) noexcept;  // what it has to be, as a number
void mendChecksum(std::span<std::uint8_t> frame) noexcept;
// One to three bits of the payload are turned over; one without payload stays as it is. `unseen`:
// the checksum is that of the spoiled frame.
void corrupt(std::span<std::uint8_t> frame, bool unseen, std::mt19937& random);

// Who talks to whom.
struct Flow {
    std::array<std::uint8_t, 6> fromCard{}, toCard{};
    std::array<std::uint8_t, 16> from{}, to{};
    std::uint16_t fromPort = 0, toPort = 0;

    bool isToGroup() const noexcept { return to[0] == 0xff; }
    Flow reversed() const noexcept { return {toCard, fromCard, to, from, toPort, fromPort}; }
};
Flow flowOf(ConstBytes frame) noexcept;
ZENNO::Bytes makeFrame(const Flow& flow, ConstBytes payload);

}  // namespace velmora_relay
