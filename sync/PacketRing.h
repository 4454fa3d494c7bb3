// The packets of about the last second, as they went out: whatever was sent can be sent again.
//
// All memory is taken when the ring is made; building, sending and sending again only rewrite it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "base/BufferCS.h"
#include "sync/TransferProfile.h"
#include "wire/Packet.h"

namespace VELMORA {

struct PacketSlot {
    std::array<std::uint8_t, wire::headerBytes> header{};  // as built
    std::uint8_t* data = nullptr;                          // start of buffer
    std::uint64_t size = 0;                                // of the packet, header included
    ZENNO::Bytes buffer;                                   // the whole datagram
    std::uint64_t payloadSize = 0;                         // bytes of audio
    std::uint8_t last = 0;  // this packet closes the stream; set by the drain, never cleared

    // An empty packet, valid as it is, with room for `largestPayload` bytes in either form.
    explicit PacketSlot(std::uint64_t largestPayload);

    // A new packet of `n` bytes (at most the room there is), header and flags 0; the payload's old
    // bytes are still in place.
    void begin(std::uint16_t sequence, std::uint64_t n) noexcept;
    void setPayloadSize(std::uint64_t n) noexcept;
    std::span<std::uint8_t> payload() noexcept {
        return {buffer.data() + wire::headerBytes, payloadSize};
    }
    void finish() noexcept;  // the header to the front of the buffer

    // The longer form in which a packet is sent again. The audio stays whole: only what lies
    // behind it is zero.
    void makeResendForm() noexcept;

    ZENNO::BufferCS_const datagram() const noexcept { return {buffer.data(), buffer.size()}; }

private:
    void resizeTo(std::uint64_t bytes) noexcept;

    std::uint64_t room_;  // largest payload
};

class PacketRing {
public:
    // Slots for about a second of `row`: a power of two, at least 32, kept in 16 bits; 0 where
    // there is no such ring (65536 packets, or a cycle of 0).
    static std::uint16_t sizeFor(const TransferProfile& row) noexcept;
    // Bytes of the largest packet that any of `rows` can come to, feedback at its most included,
    // and at least `maxPacketSize` up to that of a plain Ethernet. What a target says that it could
    // take beyond that takes no memory.
    static std::uint64_t largestPayload(std::span<const TransferProfile> rows,
                                        std::uint16_t maxPacketSize, std::uint16_t frameBytes);

    // Bytes of a ring that is sized by the first of `rows`, for the packets of all of them; and the
    // most of it that a stream of `bytesPerSecond` may take. Only a target that asks for the
    // longest packets beside the shortest cycles gets there.
    static std::uint64_t bytesFor(std::span<const TransferProfile> rows,
                                  std::uint16_t maxPacketSize, std::uint16_t frameBytes);
    static constexpr std::uint64_t mostBytesFor(std::uint64_t bytesPerSecond) noexcept {
        return std::max<std::uint64_t>(128u << 20, 3 * bytesPerSecond);
    }

    // `ringSize` is a power of two.
    PacketRing(std::uint16_t ringSize, std::uint64_t largestPayload);

    PacketSlot& at(std::uint16_t sequence) noexcept {
        return slots_[sequence & (slots_.size() - 1)];
    }
    std::uint16_t size() const noexcept { return static_cast<std::uint16_t>(slots_.size()); }

private:
    std::vector<PacketSlot> slots_;
};

}  // namespace VELMORA
