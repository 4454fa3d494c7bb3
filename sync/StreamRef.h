// A block of audio on its way from whoever makes it to the stream worker.
#pragma once

#include <cstdint>

namespace VELMORA {

// Lent: valid until the next getNewStream.
struct StreamRef {
    const std::uint8_t* data = nullptr;
    std::uint64_t size = 0;  // bytes
};

}  // namespace VELMORA
