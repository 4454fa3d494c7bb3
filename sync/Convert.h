// How bytes of audio enter a packet: plain, or with the order of a DSD word or its bits changed,
// and each with or without every bit inverted. Destination, source, count of bytes.
//
// The six word-wise conversions write count / 4 whole 32-bit words and leave a rest of 1 to 3 bytes
// unwritten; convertCopy and convertInvert write the whole count.
#pragma once

#include <cstdint>

namespace VELMORA {

using CopyStream = void (*)(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);

void convertCopy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertSwap(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertSwapInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertReverse32(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertReverse32Invert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertReverseBytes(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);
void convertReverseBytesInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count);

// The member of `now`'s family with or without inversion; what belongs to no family counts as
// plain.
CopyStream withPolarity(CopyStream now, bool inverted) noexcept;

}  // namespace VELMORA
