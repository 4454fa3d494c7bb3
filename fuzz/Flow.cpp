#include "fuzz/Flow.h"

#include <algorithm>

#include "sync/PacketRing.h"

namespace velmora_fuzz {
namespace {

// Audio that is told from silence and from itself inverted: neither it nor its complement is ever a
// byte of silence. Each 95 bytes begin elsewhere in the row of values: what is left out or comes
// twice is seen, be it as long as a row.
std::uint8_t audioAt(std::uint64_t position) {
    const std::uint64_t row = position / 95;
    return static_cast<std::uint8_t>(1 + (position + row * 7) % 95);  // inverted: 160 to 254
}

bool isSilence(std::uint8_t byte) {
    return byte == 0x00 || byte == 0xff || byte == 0x69 || byte == 0x96;
}

std::uint16_t wordAt(const Bytes& bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes.at(at) | bytes.at(at + 1) << 8);
}

}  // namespace

bool Flow::lend(VELMORA::StreamRef& out) {
    if (sync_.state != VELMORA::Sync::Connected) return false;
    for (std::uint8_t& byte : block_) byte = audioAt(lent_++);
    out = {block_.data(), block_.size()};
    return true;
}

Flow::Packet Flow::packetOf(const Datagram& datagram) {
    const Bytes& data = datagram.data;
    require(data.size() >= 16 && data.size() % 8 == 0 && wordAt(data, 0) == 100);
    const std::size_t length = wordAt(data, 2) & 0xfff8u, filler = wordAt(data, 2) & 7u;
    require(length >= 16 + filler);
    require(length == data.size() || length + 8 == data.size());  // as sent again
    Packet packet{datagram.time, wordAt(data, 6), wordAt(data, 8), {}};
    require((packet.flags & ~0x60) == 0);
    const auto begin = data.begin() + 16;
    packet.payload.assign(begin, begin + static_cast<std::ptrdiff_t>(length - filler - 16));
    require(std::all_of(begin + static_cast<std::ptrdiff_t>(packet.payload.size()), data.end(),
                        [](std::uint8_t byte) { return byte == 0; }));
    return packet;
}

void Flow::check(const std::vector<Datagram>& sent) {
    std::vector<Packet> packets;
    std::size_t endings = 0;
    for (const Datagram& datagram : sent) {
        if (!datagram.toPeer) continue;
        if (wordAt(datagram.data, 4) == 12) ++endings;
        if (wordAt(datagram.data, 4) == 10) packets.push_back(packetOf(datagram));
    }
    require(endings <= 4);
    for (const Packet& packet : packets) {
        if (packet.sequence == static_cast<std::uint16_t>(sent_.size())) {
            onNew(packet);
        } else {
            onOld(packet);
        }
    }
    require(passed_ <= lent_);
    checkWhole();
    checkRate(packets);
}

void Flow::onNew(const Packet& packet) {
    sent_.push_back(packet.payload);
    // Conversions have tests of their own.
    if (sync_.sinkConfig != sync_.hostFormat) return;
    takeAudio(packet.payload);
}

void Flow::onOld(const Packet& packet) const {
    const auto back = static_cast<std::uint16_t>(sent_.size() - packet.sequence);
    require(back <= sent_.size() && back < VELMORA::PacketRing::sizeFor(sync_.profiles[0]));
    require(packet.payload == sent_[sent_.size() - back]);
    require((packet.flags & 0x20) == 0);
}

// Of what was lent, the end of a stream leaves behind no more than the rest of a block and a packet
// that was built and did not go.
void Flow::checkWhole() const {
    if (sync_.sinkConfig != sync_.hostFormat) return;
    const std::uint64_t packet = VELMORA::PacketRing::largestPayload(
        sync_.rowsInUse(), sync_.maxPacketSize,
        static_cast<std::uint16_t>(sync_.sinkConfig.frameBytes()));
    require(lent_ - passed_ <= block_.size() + packet);
}

// Audio, then silence where there was no more; all of it with one polarity, or the other.
void Flow::takeAudio(const Bytes& payload) {
    std::size_t at = 0;
    if (!payload.empty()) {
        const bool inverted = payload[0] != audioAt(passed_);
        for (; at < payload.size(); ++at, ++passed_) {
            const std::uint8_t byte =
                inverted ? static_cast<std::uint8_t>(~payload[at]) : payload[at];
            if (byte != audioAt(passed_)) break;
        }
    }
    require(
        std::all_of(payload.begin() + static_cast<std::ptrdiff_t>(at), payload.end(), isSilence));
}

void Flow::checkRate(const std::vector<Packet>& packets) const {
    if (packets.empty()) return;
    std::uint64_t shortest = ~0ull, largest = 0;
    for (std::int32_t i = 0; i < std::max(1, sync_.profileCount); ++i) {
        const VELMORA::TransferProfile& row = sync_.profiles[static_cast<std::size_t>(i)];
        // Feedback shortens a cycle by 3 percent at the most.
        shortest =
            std::min<std::uint64_t>(shortest, row.cycle - (std::uint64_t{row.cycle} * 491 >> 14));
        largest = std::max<std::uint64_t>(
            {largest, row.packetCount,
             std::min<std::uint64_t>(2ull * row.packetCount, sync_.maxPacketCount)});
    }
    std::uint64_t bursts = 0, burst = 0;
    for (const Packet& packet : packets) {
        require(++burst <= largest);
        if ((packet.flags & 0x40) == 0) continue;
        ++bursts;
        burst = 0;
    }
    const std::uint64_t lasted = packets.back().time - packets.front().time;
    require(bursts <= lasted / std::max<std::uint64_t>(1, shortest) + 3);
}

}  // namespace velmora_fuzz
