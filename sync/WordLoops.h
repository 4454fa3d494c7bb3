// The loops under the word-wise conversions, one set for every processor and one for those that can
// shuffle bytes. All write count / 4 whole words, at any alignment, and nothing behind them.
#pragma once

#include <cstdint>

namespace VELMORA {

struct WordLoops {
    using Loop = void (*)(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) noexcept;

    // The bytes of each word turned round, the bits of each byte turned round, or both; then
    // without and with every bit inverted.
    Loop swap, swapInvert;
    Loop reverse32, reverse32Invert;
    Loop reverseBytes, reverseBytesInvert;
};

extern const WordLoops plainWordLoops;
const WordLoops* wideWordLoops() noexcept;  // null where the processor has no such instructions
const WordLoops& bestWordLoops() noexcept;  // chosen once

}  // namespace VELMORA
