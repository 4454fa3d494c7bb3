#include "sync/PacketTrace.h"

#include "base/Clock.h"

namespace VELMORA {

void PacketTrace::clear() noexcept {
    bytes_.fill(0);
    pairs_ = 0;
}

bool PacketTrace::add(std::uint32_t time, std::uint64_t size) noexcept {
    if (pairs_ == 0) first_ = time;
    store(2 * pairs_ + 1, time);
    store(2 * pairs_ + 2, static_cast<std::uint32_t>(size) + wireOverhead);
    ++pairs_;
    if (pairs_ < mostPairs && !ZENNO::hasReached(time - first_, span)) return false;
    store(0, (pairs_ | 0x100) << 16);
    return true;
}

void PacketTrace::store(std::size_t word, std::uint32_t value) noexcept {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes_[word * 4 + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

}  // namespace VELMORA
