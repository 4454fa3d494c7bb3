#include "sync/Convert.h"

#include <array>
#include <cstring>

namespace VELMORA {
namespace {

// The 256 bytes with the order of their bits reversed.
constexpr std::array<std::uint8_t, 256> reversedBits = [] {
    std::array<std::uint8_t, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        unsigned reversed = 0;
        for (unsigned bit = 0; bit < 8; ++bit) {
            if ((byte & (1u << bit)) != 0) reversed |= 0x80u >> bit;
        }
        table[byte] = static_cast<std::uint8_t>(reversed);
    }
    return table;
}();

constexpr std::array<std::uint8_t, 256> reversedBitsInverted = [] {
    std::array<std::uint8_t, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        table[byte] = static_cast<std::uint8_t>(~reversedBits[byte]);
    }
    return table;
}();

static_assert(reversedBits[0x01] == 0x80 && reversedBits[0x03] == 0xC0);
static_assert(reversedBitsInverted[0x00] == 0xFF && reversedBitsInverted[0x01] == 0x7F);

// Blocks and packets start where they start: words are loaded and stored at any alignment.
template <class Step>
void eachWord(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count, Step step) {
    const std::uint64_t words = count / 4;
    for (std::uint64_t i = 0; i < words; ++i) {
        std::uint32_t word;
        std::memcpy(&word, from + 4 * i, 4);
        word = step(word);
        std::memcpy(to + 4 * i, &word, 4);
    }
}

constexpr std::uint32_t swapped(std::uint32_t word) noexcept {
    return word >> 24 | (word >> 8 & 0x0000ff00u) | (word << 8 & 0x00ff0000u) | word << 24;
}

// Every byte through a table, each in its place.
constexpr std::uint32_t mapped(std::uint32_t word,
                               const std::array<std::uint8_t, 256>& table) noexcept {
    return std::uint32_t{table[word & 0xff]} | std::uint32_t{table[word >> 8 & 0xff]} << 8 |
           std::uint32_t{table[word >> 16 & 0xff]} << 16 | std::uint32_t{table[word >> 24]} << 24;
}

struct Family {
    CopyStream normal, inverted;
};

constexpr Family families[] = {
    {convertCopy, convertInvert},
    {convertSwap, convertSwapInvert},
    {convertReverse32, convertReverse32Invert},
    {convertReverseBytes, convertReverseBytesInvert},
};

}  // namespace

void convertCopy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    if (count != 0) std::memmove(to, from, count);  // an empty view may have no address at all
}

void convertInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    std::uint64_t i = 0;
    for (; count - i >= 8; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, from + i, 8);
        word = ~word;
        std::memcpy(to + i, &word, 8);
    }
    for (; i < count; ++i) to[i] = static_cast<std::uint8_t>(~from[i]);
}

void convertSwap(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count, [](std::uint32_t word) { return swapped(word); });
}

void convertSwapInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count, [](std::uint32_t word) { return ~swapped(word); });
}

void convertReverse32(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count,
             [](std::uint32_t word) { return swapped(mapped(word, reversedBits)); });
}

void convertReverse32Invert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count,
             [](std::uint32_t word) { return swapped(mapped(word, reversedBitsInverted)); });
}

void convertReverseBytes(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count, [](std::uint32_t word) { return mapped(word, reversedBits); });
}

void convertReverseBytesInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    eachWord(to, from, count,
             [](std::uint32_t word) { return mapped(word, reversedBitsInverted); });
}

CopyStream withPolarity(CopyStream now, bool inverted) noexcept {
    for (const Family& family : families) {
        if (now == family.normal || now == family.inverted) {
            return inverted ? family.inverted : family.normal;
        }
    }
    return inverted ? convertInvert : convertCopy;
}

}  // namespace VELMORA
