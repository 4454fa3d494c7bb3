#include "wire/Packet.h"

#include <algorithm>

namespace VELMORA::wire {

std::uint64_t PacketView::arg64() const noexcept {
    std::uint64_t v = 0;
    for (std::size_t at = headerBytes; at-- > 8;) v = v << 8 | datagram_[at];
    return v;
}

std::string_view PacketView::text() const noexcept {
    const ConstBytes bytes = payload();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::optional<PacketView> readPacket(ConstBytes datagram) noexcept {
    if (datagram.size() < headerBytes) return std::nullopt;
    if (load16(datagram, 0) != packetMagic) return std::nullopt;
    if (lengthInSizeWord(load16(datagram, 2)) > datagram.size()) return std::nullopt;
    return PacketView(datagram);
}

void writeHeader(std::span<std::uint8_t> out, std::uint16_t sizeWord, std::uint16_t id,
                 std::uint16_t flags, const Arg& arg) noexcept {
    store16(out, 0, packetMagic);
    store16(out, 2, sizeWord);
    store16(out, 4, id);
    store16(out, 6, flags);
    for (std::size_t i = 0; i < arg.size(); ++i) store16(out, 8 + 2 * i, arg[i]);
}

ZENNO::Bytes makePacket(std::uint16_t id, std::uint16_t flags, const Arg& arg, ConstBytes payload) {
    // The count is that of the field, 16 bits: a text of 65,536 bytes goes out as an empty one. The
    // last 23 counts of the turn would claim less than a header, and are cut to what can be told.
    const std::size_t n = std::min<std::size_t>(payload.size() & 0xffff, maxPayloadBytes);
    ZENNO::Bytes out(packetBytes(n));  // zero, and so is the filler
    writeHeader(out, sizeWordFor(n), id, flags, arg);
    std::copy_n(payload.begin(), n, out.begin() + headerBytes);
    return out;
}

}  // namespace VELMORA::wire
