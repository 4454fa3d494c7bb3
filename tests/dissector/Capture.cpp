#include "tests/dissector/Capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

namespace velmora_test {
namespace {

constexpr std::size_t ipHeader = 40, udpHeader = 8;
constexpr std::uint8_t udp = 17, icmp = 58;

void big16(Bytes& out, std::size_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}
void little32(std::ofstream& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.put(static_cast<char>(value >> shift));
}
void little16(std::ofstream& out, std::uint16_t value) {
    out.put(static_cast<char>(value));
    out.put(static_cast<char>(value >> 8));
}

// The Internet checksum (RFC 1071) over the pseudo header of IPv6 (RFC 8200, 8.1) and the body.
std::uint16_t checksum(const IPAddress& from, const IPAddress& to, std::uint8_t protocol,
                       const Bytes& body) {
    std::uint64_t sum = body.size() + protocol;
    const auto add = [&sum](const auto& bytes) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            sum += i % 2 == 0 ? std::uint64_t{bytes[i]} << 8 : bytes[i];
        }
    };
    add(from.address);
    add(to.address);
    add(body);
    while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
    const auto inverted = static_cast<std::uint16_t>(~sum);
    return inverted == 0 ? std::uint16_t{0xffff} : inverted;
}

// `body` with its checksum to be filled in at `sumAt`, behind an IPv6 header.
Bytes ipPacket(const IPAddress& from, const IPAddress& to, std::uint8_t protocol, Bytes body,
               std::size_t sumAt) {
    const std::uint16_t sum = checksum(from, to, protocol, body);
    body[sumAt] = static_cast<std::uint8_t>(sum >> 8);
    body[sumAt + 1] = static_cast<std::uint8_t>(sum);
    Bytes out = {0x60, 0, 0, 0};
    big16(out, body.size());
    out.insert(out.end(), {protocol, 64});
    out.insert(out.end(), from.address.begin(), from.address.end());
    out.insert(out.end(), to.address.begin(), to.address.end());
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

Bytes udpPacket(const IPAddress& from, const IPAddress& to, const Bytes& datagram) {
    Bytes body;
    big16(body, from.portNumber());
    big16(body, to.portNumber());
    big16(body, udpHeader + datagram.size());
    big16(body, 0);
    body.insert(body.end(), datagram.begin(), datagram.end());
    EXPECT_LE(body.size(), 0xffffu);
    return ipPacket(from, to, udp, std::move(body), 6);
}

}  // namespace

void Capture::add(const IPAddress& from, const IPAddress& to, const Bytes& datagram) {
    add(from, to, datagram, packets_.empty() ? 0 : packets_.back().micros + 1000);
}

void Capture::add(const IPAddress& from, const IPAddress& to, const Bytes& datagram,
                  std::uint64_t micros) {
    Bytes packet = udpPacket(from, to, datagram);
    const std::size_t length = packet.size();
    if (kept_ < datagram.size()) packet.resize(ipHeader + udpHeader + kept_);
    packets_.push_back({micros, length, std::move(packet)});
}

void Capture::addUnreachable(const IPAddress& from, const IPAddress& to, const Bytes& datagram) {
    Bytes body = {1, 4, 0, 0, 0, 0, 0, 0};  // destination unreachable, no such port
    const Bytes quoted = udpPacket(from, to, datagram);
    body.insert(body.end(), quoted.begin(), quoted.end());
    Bytes packet = ipPacket(to, from, icmp, std::move(body), 2);
    const std::size_t length = packet.size();
    packets_.push_back(
        {packets_.empty() ? 0 : packets_.back().micros + 1000, length, std::move(packet)});
}

void Capture::write(const std::string& path) const {
    constexpr std::uint32_t magic = 0xa1b2c3d4, begin = 1'700'000'000, linkTypeIPv6 = 229;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    little32(out, magic);
    little16(out, 2);  // version 2.4
    little16(out, 4);
    little32(out, 0);
    little32(out, 0);
    little32(out, 0x40000);  // most bytes of a packet
    little32(out, linkTypeIPv6);
    for (const Packet& packet : packets_) {
        little32(out, begin + static_cast<std::uint32_t>(packet.micros / 1'000'000));
        little32(out, static_cast<std::uint32_t>(packet.micros % 1'000'000));
        little32(out, static_cast<std::uint32_t>(packet.bytes.size()));
        little32(out, static_cast<std::uint32_t>(packet.length));
        out.write(reinterpret_cast<const char*>(packet.bytes.data()),
                  static_cast<std::streamsize>(packet.bytes.size()));
    }
    EXPECT_TRUE(out.flush().good()) << path;
}

}  // namespace velmora_test
