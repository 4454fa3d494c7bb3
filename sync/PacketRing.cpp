#include "sync/PacketRing.h"

#include <algorithm>
#include <bit>

#include "sync/FeedbackFilter.h"
#include "wire/StreamMessage.h"

namespace VELMORA {

namespace {

constexpr std::uint32_t smallestRing = 32;
constexpr std::uint16_t plainPacketSize = 1428;  // what a packet of 1500 bytes has room for
// What a header can still tell of a packet in its longer form.
constexpr std::uint64_t mostPayload = 65535 - 25;

}  // namespace

PacketSlot::PacketSlot(std::uint64_t largestPayload)
    : room_(std::min(largestPayload, mostPayload)) {
    // Touched as a whole, not only reserved: the worker is not to wait for its pages.
    buffer.resize(wire::resentPacketBytes(room_));
    wire::writeHeader(header, wire::sizeWordFor(0), 0, 0, {});
    setPayloadSize(0);
    finish();
}

void PacketSlot::begin(std::uint16_t sequence, std::uint64_t n) noexcept {
    wire::writeStreamHeader(header, {.flags = 0, .sequence = sequence}, 0);
    setPayloadSize(n);
}

void PacketSlot::setPayloadSize(std::uint64_t n) noexcept {
    payloadSize = std::min(n, room_);
    wire::store16(header, 2, wire::sizeWordFor(payloadSize));
    resizeTo(wire::packetBytes(payloadSize));
    size = buffer.size();
    // Before the audio comes in, and so whatever a conversion leaves unwritten there is zero too.
    if (payloadSize % 8 != 0) std::fill(buffer.end() - 8, buffer.end(), std::uint8_t{0});
}

void PacketSlot::finish() noexcept {
    std::copy(header.begin(), header.end(), buffer.begin());
}

void PacketSlot::makeResendForm() noexcept {
    wire::store16(header, 2, wire::sizeWordFor(payloadSize));
    resizeTo(wire::resentPacketBytes(payloadSize));
    size = wire::packetBytes(payloadSize);
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(wire::headerBytes + payloadSize),
              buffer.end(), std::uint8_t{0});
}

// Never beyond what was reserved.
void PacketSlot::resizeTo(std::uint64_t bytes) noexcept {
    buffer.resize(bytes);
    data = buffer.data();
}

std::uint16_t PacketRing::sizeFor(const TransferProfile& row) noexcept {
    if (row.cycle == 0) return 0;
    const std::uint64_t packets = std::uint64_t{row.packetCount} * (1000000 / row.cycle);
    if (packets > 0x8000) return 0;
    return static_cast<std::uint16_t>(
        std::max(smallestRing, std::bit_ceil(static_cast<std::uint32_t>(packets))));
}

std::uint64_t PacketRing::largestPayload(std::span<const TransferProfile> rows,
                                         std::uint16_t maxPacketSize, std::uint16_t frameBytes) {
    std::uint64_t most = std::min(maxPacketSize, plainPacketSize);
    for (const TransferProfile& row : rows) {
        const std::uint64_t prefilled = std::uint64_t{row.framesQ14 >> 14} * frameBytes;
        // One frame more where the fractions add up.
        const std::uint64_t frames = (FeedbackFilter::mostFramesFor(row) >> 14) + 1;
        const std::uint64_t playing = std::min<std::uint64_t>(frames * frameBytes, maxPacketSize);
        most = std::max({most, std::uint64_t{row.fixedBytes}, prefilled, playing});
    }
    return most;
}

std::uint64_t PacketRing::bytesFor(std::span<const TransferProfile> rows,
                                   std::uint16_t maxPacketSize, std::uint16_t frameBytes) {
    const std::uint64_t payload = largestPayload(rows, maxPacketSize, frameBytes);
    return sizeFor(rows.front()) * wire::resentPacketBytes(std::min(payload, mostPayload));
}

PacketRing::PacketRing(std::uint16_t ringSize, std::uint64_t largestPayload) {
    slots_.reserve(ringSize);
    for (std::uint32_t i = 0; i < ringSize; ++i) slots_.emplace_back(largestPayload);
}

}  // namespace VELMORA
