// The one way to ask a target something: send a request, wait for its answer, send it again when
// nothing comes.
#pragma once

#include <cstdint>

#include "base/Clock.h"
#include "src/Network/Link.h"

namespace VELMORA {

// Whether a datagram from `from` is one of `to`'s: address and port are the same, and the scope is
// the one that `link` sends to, or 0 on a link that is bound to a scope.
bool isFrom(const ZENNO::Link& link, const ZENNO::IPAddress& from,
            const ZENNO::IPAddress& to) noexcept;

// True: the socket worked, and `answer` holds the whole datagram of the answer, or nothing when
// the target said nothing of use: three silent tries of `waitMicros` each, a refusal, an echo of
// the request's own id. False: the socket failed.
//
// Strangers' datagrams and other ids are passed over, and each restarts the wait. A flood of them
// is endured for five seconds beyond the three tries; then the target counts as silent. What a
// flood left behind is read before the request goes out, so that the answer finds room.
bool sendAck(ZENNO::Link& link, ZENNO::Clock& clock, const ZENNO::IPAddress& to,
             const ZENNO::Bytes& request, std::uint16_t answerId, ZENNO::Bytes& answer,
             const std::uint32_t& waitMicros);

constexpr int exchangeTries = 3;
// An answer comes within one wait of its request, or within three; this is what a flood is given on
// top (µs). The longest exchange then still ends before connectWait does.
constexpr std::uint32_t exchangePatience = 5000000;

}  // namespace VELMORA
