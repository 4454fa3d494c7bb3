// The 16-byte header that every datagram of stream and discovery starts with, and its filler rule.
//
//   0       2          4      6       8                        16          16 + n
//   | magic | sizeWord |  id  | flags |  arg: u64 or 4 x u16   | payload n |  filler, zero |
//
// All fields are little-endian. magic is 100. sizeWord: bits 3..15 the length of the whole packet,
// a multiple of 8; bits 0..2 the number of filler bytes behind the payload.
//
//   n = 0   64 00 10 00 ...                                   16 bytes, no filler
//   n = 3   64 00 1d 00 ... p0 p1 p2 00 00 00 00 00           24 bytes, 5 of them filler
//   n = 8   64 00 18 00 ... p0 p1 p2 p3 p4 p5 p6 p7           24 bytes, no filler
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/BufferCS.h"

namespace VELMORA::wire {

using ConstBytes = std::span<const std::uint8_t>;

constexpr std::size_t headerBytes = 16;
constexpr std::uint16_t packetMagic = 100;
constexpr std::uint16_t acceptedFlag = 0x0001;  // on an answer: it carries data / it is no refusal
// The largest length that sizeWord can tell is 0xfff8; a header of it is no payload.
constexpr std::size_t maxPayloadBytes = 0xfff8 - headerBytes;

// Little-endian words. `at` and the bytes behind it must lie within the span.
constexpr std::uint16_t load16(ConstBytes in, std::size_t at) noexcept {
    return static_cast<std::uint16_t>(in[at] | in[at + 1] << 8);
}
constexpr void store16(std::span<std::uint8_t> out, std::size_t at, std::uint16_t v) noexcept {
    out[at] = static_cast<std::uint8_t>(v);
    out[at + 1] = static_cast<std::uint8_t>(v >> 8);
}

// Length of the datagram that carries a payload of n bytes, n taken as 16 bits. Above
// maxPayloadBytes the field wraps and tells less than a header: makePacket does not go there.
constexpr std::size_t packetBytes(std::size_t n) noexcept {
    return (n + 23) & 0xfff8;
}
// The longer form in which an audio packet is sent again: by 8 zero bytes where n mod 8 is 0 or 7.
constexpr std::size_t resentPacketBytes(std::size_t n) noexcept {
    return (n + 25) & 0xfff8;
}
constexpr std::uint16_t sizeWordFor(std::size_t n) noexcept {
    return static_cast<std::uint16_t>(packetBytes(n) | ((0 - n) & 7));
}
constexpr std::size_t lengthInSizeWord(std::uint16_t sizeWord) noexcept {
    return sizeWord & 0xfff8u;
}
// 0 where the word claims less than a header and its filler.
constexpr std::size_t payloadInSizeWord(std::uint16_t sizeWord) noexcept {
    const std::size_t length = lengthInSizeWord(sizeWord), filler = sizeWord & 7u;
    return length >= headerBytes + filler ? length - filler - headerBytes : 0;
}

// A sound datagram as it lies in the receiver's buffer; valid as long as that is.
class PacketView {
public:
    std::uint16_t id() const noexcept { return load16(datagram_, 4); }
    std::uint16_t flags() const noexcept { return load16(datagram_, 6); }
    bool accepted() const noexcept { return (flags() & acceptedFlag) != 0; }
    std::uint16_t sizeWord() const noexcept { return load16(datagram_, 2); }
    // A word of arg by its offset in the datagram: 8, 10, 12 or 14.
    std::uint16_t arg16(std::size_t offset) const noexcept { return load16(datagram_, offset); }
    std::uint64_t arg64() const noexcept;
    ConstBytes payload() const noexcept {
        return datagram_.subspan(headerBytes, payloadInSizeWord(sizeWord()));
    }
    std::string_view text() const noexcept;                     // the payload as characters
    ConstBytes datagram() const noexcept { return datagram_; }  // all that came, surplus included

private:
    explicit PacketView(ConstBytes datagram) noexcept : datagram_(datagram) {}
    friend std::optional<PacketView> readPacket(ConstBytes) noexcept;
    ConstBytes datagram_;
};

// Nothing unless: at least 16 bytes, magic 100, and sizeWord claims no more than what came. Bytes
// behind the claimed length are allowed and not looked at: a packet sent again may carry 8 of them.
// A word that claims less than a header is taken too, and has no payload.
std::optional<PacketView> readPacket(ConstBytes datagram) noexcept;

// The four u16 words of arg, at +8, +10, +12, +14; one u64 is the same bytes, lowest word first.
using Arg = std::array<std::uint16_t, 4>;
constexpr Arg argOf(std::uint64_t v) noexcept {
    return {static_cast<std::uint16_t>(v), static_cast<std::uint16_t>(v >> 16),
            static_cast<std::uint16_t>(v >> 32), static_cast<std::uint16_t>(v >> 48)};
}

// Writes the 16 header bytes to the front of `out`, which holds at least so many; allocates
// nothing.
void writeHeader(std::span<std::uint8_t> out, std::uint16_t sizeWord, std::uint16_t id,
                 std::uint16_t flags, const Arg& arg) noexcept;

// A whole datagram: header, payload, zero filler. The payload's length is taken as 16 bits, so one
// of 65,536 bytes goes out empty; of the last 23 lengths, 65,513 to 65,535, which no header can
// tell, the first maxPayloadBytes go out.
ZENNO::Bytes makePacket(std::uint16_t id, std::uint16_t flags, const Arg& arg = {},
                        ConstBytes payload = {});

}  // namespace VELMORA::wire
