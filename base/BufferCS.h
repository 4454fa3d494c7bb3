// Views of bytes that are lent, never owned: a pointer and a size in bytes, in this order.
#pragma once

#include <cstdint>
#include <vector>

namespace ZENNO {

using Bytes = std::vector<std::uint8_t>;

struct BufferCS {
    std::uint8_t* data = nullptr;
    std::uint64_t size = 0;
};

struct BufferCS_const {
    const std::uint8_t* data = nullptr;
    std::uint64_t size = 0;

    BufferCS_const() = default;
    BufferCS_const(const std::uint8_t* bytes, std::uint64_t count) : data(bytes), size(count) {}
    BufferCS_const(BufferCS view) : data(view.data), size(view.size) {}
    BufferCS_const(const Bytes& bytes) : data(bytes.data()), size(bytes.size()) {}
};

}  // namespace ZENNO
