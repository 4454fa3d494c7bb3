#include "apps/velmora-relay/Frame.h"

#include <algorithm>

namespace velmora_relay {

namespace {

constexpr std::size_t lengthAt = ipAt + 4, nextHeaderAt = ipAt + 6, fromAt = ipAt + 8,
                      toAt = ipAt + 24;
constexpr std::size_t checksumAt = udpAt + 6;
constexpr std::uint8_t udp = 17;

std::uint16_t load(ConstBytes in, std::size_t at) noexcept {
    return static_cast<std::uint16_t>(in[at] << 8 | in[at + 1]);
}

void store(std::span<std::uint8_t> out, std::size_t at, std::size_t v) noexcept {
    out[at] = static_cast<std::uint8_t>(v >> 8);
    out[at + 1] = static_cast<std::uint8_t>(v);
}

template <std::size_t size>
void copyOut(ConstBytes in, std::size_t at, std::array<std::uint8_t, size>& out) noexcept {
    std::copy_n(in.begin() + static_cast<std::ptrdiff_t>(at), size, out.begin());
}

template <std::size_t size>
void copyIn(std::span<std::uint8_t> out, std::size_t at,
            const std::array<std::uint8_t, size>& in) noexcept {
    std::copy_n(in.begin(), size, out.begin() + static_cast<std::ptrdiff_t>(at));
}

}  // namespace

std::optional<std::size_t> udpPayload(ConstBytes frame) noexcept {
    if (frame.size() < payloadAt || load(frame, 12) != 0x86dd || frame[nextHeaderAt] != udp) {
        return std::nullopt;
    }
    const std::size_t inIp = load(frame, lengthAt), inUdp = load(frame, udpAt + 4);
    if (inUdp < 8 || inUdp > inIp || udpAt + inIp > frame.size()) return std::nullopt;
    return inUdp - 8;
}

// RFC 768 with the pseudo-header of RFC 8200, 8.1.
std::uint16_t udpChecksum(ConstBytes frame) noexcept {
    const std::size_t length = load(frame, udpAt + 4);
    std::uint64_t sum = length + udp;
    const auto add = [&](std::size_t at, std::size_t bytes) {
        for (std::size_t i = 0; i + 1 < bytes; i += 2) sum += load(frame, at + i);
        if (bytes % 2 != 0) sum += static_cast<std::uint64_t>(frame[at + bytes - 1]) << 8;
    };
    add(fromAt, 32);
    add(udpAt, 6);
    add(payloadAt, length - 8);
    while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
    const auto checksum = static_cast<std::uint16_t>(~sum);
    return checksum == 0 ? std::uint16_t{0xffff} : checksum;
}

void mendChecksum(std::span<std::uint8_t> frame) noexcept {
    store(frame, checksumAt, udpChecksum(frame));
}

void corrupt(std::span<std::uint8_t> frame, bool unseen, std::mt19937& random) {
    const std::size_t payload = udpPayload(frame).value_or(0);
    if (payload == 0) return;
    // Each bit in a byte of its own, or the same one twice would be none.
    std::size_t at = random() % payload;
    for (std::size_t bits = 1 + random() % std::min<std::size_t>(3, payload); bits != 0; --bits) {
        frame[payloadAt + at] =
            static_cast<std::uint8_t>(frame[payloadAt + at] ^ 1u << random() % 8);
        at = (at + 1) % payload;
    }
    if (unseen) {
        mendChecksum(frame);
    } else if (load(frame, checksumAt) == udpChecksum(frame)) {
        frame[checksumAt] ^= 0x55;  // the bits cancelled out
    }
}

Flow flowOf(ConstBytes frame) noexcept {
    Flow flow;
    copyOut(frame, 0, flow.toCard);
    copyOut(frame, 6, flow.fromCard);
    copyOut(frame, fromAt, flow.from);
    copyOut(frame, toAt, flow.to);
    flow.fromPort = load(frame, udpAt);
    flow.toPort = load(frame, udpAt + 2);
    return flow;
}

ZENNO::Bytes makeFrame(const Flow& flow, ConstBytes payload) {
    ZENNO::Bytes frame(payloadAt + payload.size());
    copyIn(frame, 0, flow.toCard);
    copyIn(frame, 6, flow.fromCard);
    store(frame, 12, 0x86dd);
    frame[ipAt] = 0x60;
    store(frame, lengthAt, 8 + payload.size());
    frame[nextHeaderAt] = udp;
    frame[nextHeaderAt + 1] = 64;
    copyIn(frame, fromAt, flow.from);
    copyIn(frame, toAt, flow.to);
    store(frame, udpAt, flow.fromPort);
    store(frame, udpAt + 2, flow.toPort);
    store(frame, udpAt + 4, 8 + payload.size());
    std::copy(payload.begin(), payload.end(), frame.begin() + payloadAt);
    mendChecksum(frame);
    return frame;
}

}  // namespace velmora_relay
