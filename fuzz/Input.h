// A fuzzer's bytes, spent front to back on numbers and texts. Behind the last one all is zero, so
// that every input is a whole script.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/BufferCS.h"

namespace velmora_fuzz {

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) noexcept : rest_(data, size) {}

    bool isEmpty() const noexcept { return rest_.empty(); }
    std::uint8_t byte() noexcept { return static_cast<std::uint8_t>(number(1)); }
    std::uint16_t word() noexcept { return static_cast<std::uint16_t>(number(2)); }
    // Little-endian, of up to 8 bytes.
    std::uint64_t number(std::size_t bytes) noexcept {
        std::uint64_t value = 0;
        const auto taken = take(bytes);
        for (std::size_t i = taken.size(); i-- > 0;) value = value << 8 | taken[i];
        return value;
    }
    // From 0 to `most`, out of two bytes.
    std::uint32_t upTo(std::uint32_t most) noexcept { return word() % (most + 1); }
    bool flag() noexcept { return (byte() & 1) != 0; }
    ZENNO::Bytes bytes(std::size_t count) {
        const auto taken = take(count);
        return {taken.begin(), taken.end()};
    }

private:
    std::span<const std::uint8_t> take(std::size_t count) noexcept {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    std::span<const std::uint8_t> rest_;
};

}  // namespace velmora_fuzz
