// Small words that the writers and readers of all messages share; of use in this folder alone.
#pragma once

#include "wire/StreamMessage.h"

namespace VELMORA::wire {

// CLIENT_REQ and HELLO_REQ are the two requests that carry a 1 where all others carry 0.
constexpr std::uint16_t requestFlag = 0x0001;

constexpr std::uint16_t answerFlags(bool accepted) noexcept {
    return accepted ? acceptedFlag : std::uint16_t{0};
}

// The phase request of CONNECT_ANS and INFO_ANS is a field of two bits, of whose four values one
// asks for inversion.
constexpr std::uint16_t phaseFlags(bool wantsInvert) noexcept {
    return wantsInvert ? INFO_ANS::phaseInvert : std::uint16_t{0};
}
constexpr bool asksInvert(std::uint16_t flags) noexcept {
    return (flags & INFO_ANS::phaseMask) == INFO_ANS::phaseInvert;
}

inline ConstBytes bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

}  // namespace VELMORA::wire
