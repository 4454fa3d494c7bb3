#include "sync/Convert.h"

#include <cstring>

#include "sync/WordLoops.h"

namespace VELMORA {
namespace {

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
    for (std::uint64_t i = 0; i < count; ++i) to[i] = static_cast<std::uint8_t>(~from[i]);
}

void convertSwap(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().swap(to, from, count);
}

void convertSwapInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().swapInvert(to, from, count);
}

void convertReverse32(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().reverse32(to, from, count);
}

void convertReverse32Invert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().reverse32Invert(to, from, count);
}

void convertReverseBytes(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().reverseBytes(to, from, count);
}

void convertReverseBytesInvert(std::uint8_t* to, const std::uint8_t* from, std::uint64_t count) {
    bestWordLoops().reverseBytesInvert(to, from, count);
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
