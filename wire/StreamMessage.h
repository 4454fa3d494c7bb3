// Every message between host and target on the stream's sockets, both directions.
//
// A message is a struct named as on the wire. `write` makes its datagram; `read<M>` gives the
// message of a packet whose id is M's, or nothing. `accepted` is bit 0 of an answer's flags. What a
// drawing shows as "-" is written as zero and not looked at when read. Latencies count 100 µs, the
// profile's cycle bounds 10 µs. A drawing begins behind magic and sizeWord (wire/Packet.h):
//
//   4    6       8       10      12      14      16
//   | id | flags |  the four words of arg        | payload
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "driver/SinkConfig.h"
#include "wire/Packet.h"

namespace VELMORA::wire {

// ---- capabilities ----

// |  4 |   0   | selector: 0 for the summary, or the bits to detail |
struct SUPPORT_REQ {
    static constexpr std::uint16_t id = 4, answer = 5;
    std::uint64_t selector = 0;
    bool operator==(const SUPPORT_REQ&) const = default;
};

// |  5 |   1   | mask, laid out as a SinkConfig |
struct SUPPORT_ANS {
    static constexpr std::uint16_t id = 5;
    bool accepted = true;
    std::uint64_t mask = 0;
    bool operator==(const SUPPORT_ANS&) const = default;
};

// |  6 |   0   | wanted |   -   |   -   |   -   |
struct LATENCY_REQ {
    static constexpr std::uint16_t id = 6, answer = 7;
    std::uint16_t wanted = 0;  // 0 only asks
    bool operator==(const LATENCY_REQ&) const = default;
};

// |  7 |   1   | latency | hwLatency |   -   |   -   |
struct LATENCY_ANS {
    static constexpr std::uint16_t id = 7;
    bool accepted = true;
    std::uint16_t latency = 0;
    std::uint16_t hwLatency = 0;
    bool operator==(const LATENCY_ANS&) const = default;
};

// | 14 |   0   |   -   |   -   |   -   |   -   | nothing, or the probe pattern
struct DATASIZE_REQ {
    static constexpr std::uint16_t id = 14, answer = 15;
    std::uint16_t probeBytes = 0;  // length of the pattern; 0 for none. Its bytes are not compared
    bool operator==(const DATASIZE_REQ&) const = default;
};

// | 15 |   1   |  mtu  | maxBurst | seenLength | seenSum |
struct DATASIZE_ANS {
    static constexpr std::uint16_t id = 15;
    bool accepted = true;
    std::uint16_t mtu = 0;
    std::uint16_t maxBurst = 0;    // bytes; 65535: no limit
    std::uint16_t seenLength = 0;  // of a probe pattern
    std::uint16_t seenSum = 0;     // of its bytes, with wrap
    bool operator==(const DATASIZE_ANS&) const = default;
};

// | 20 |   0   | config |
struct PROFILE_REQ {
    static constexpr std::uint16_t id = 20, answer = 21;
    SinkConfig config{};  // all zero while no format is chosen
    bool operator==(const PROFILE_REQ&) const = default;
};

// | 21 |   1   | minCycle10 | maxCycle10 | profileFlags |   -   |
struct PROFILE_ANS {
    static constexpr std::uint16_t id = 21;
    bool accepted = true;
    std::uint16_t minCycle10 = 0, maxCycle10 = 0, profileFlags = 0;
    bool operator==(const PROFILE_ANS&) const = default;
};

// | 42 |   0   |   -   |   -   |   -   |   -   |
struct NOPBREAK_REQ {  // answered under the id of SUPPORT_ANS
    static constexpr std::uint16_t id = 42, answer = 5;
    bool operator==(const NOPBREAK_REQ&) const = default;
};

// ---- opening and closing a stream ----

// | 18 |   0   | classWord |
struct CONNECTPRE_REQ {
    static constexpr std::uint16_t id = 18, answer = 19;
    std::uint64_t classWord = 0;  // classWord() below
    bool operator==(const CONNECTPRE_REQ&) const = default;
};

// | 19 |   1   |   ?   | latency |   ?   |   ?   |
struct CONNECTPRE_ANS {
    static constexpr std::uint16_t id = 19;
    bool accepted = true;
    std::uint64_t word = 0;  // bits 16..31: the granted latency
    std::uint16_t latency() const noexcept { return static_cast<std::uint16_t>(word >> 16); }
    bool operator==(const CONNECTPRE_ANS&) const = default;
};

// | 24 |   1   | productId | name, no terminator
struct CLIENT_REQ {
    static constexpr std::uint16_t id = 24, answer = 25;
    std::uint64_t productId = 0;
    std::string name{};  // bytes; no encoding is laid down
    bool operator==(const CLIENT_REQ&) const = default;
};

// | 25 |   1   |   -   |   -   |   -   |   -   |
struct CLIENT_ANS {
    static constexpr std::uint16_t id = 25;
    bool accepted = true;
    bool operator==(const CLIENT_ANS&) const = default;
};

// |  8 |   0   | config |
struct CONNECT_REQ {
    static constexpr std::uint16_t id = 8, answer = 9;
    SinkConfig config{};
    bool operator==(const CONNECT_REQ&) const = default;
};

// |  9 | 1 + phase | streamPort |   -   |   -   |   -   |
struct CONNECT_ANS {
    static constexpr std::uint16_t id = 9;
    bool accepted = true;
    bool wantsInvert = false;      // flags & 0x180 == 0x100
    std::uint16_t streamPort = 0;  // host order
    bool operator==(const CONNECT_ANS&) const = default;
};

// | 12 |   0   |   -   |   -   |   -   |   -   |
struct DSICONNECT_REQ {
    static constexpr std::uint16_t id = 12, answer = 13;
    bool operator==(const DSICONNECT_REQ&) const = default;
};

// | 13 |   1   |   -   |   -   |   -   |   -   |
struct DSICONNECT_ANS {
    static constexpr std::uint16_t id = 13;
    bool accepted = true;
    bool operator==(const DSICONNECT_ANS&) const = default;
};

// ---- the stream itself ----

// | 10 | 0, 0x40 or 0x60 | sequence |   -   |   -   |   -   | audio
struct STREAM_DATA {  // the header alone; the audio lies behind it
    static constexpr std::uint16_t id = 10;
    static constexpr std::uint16_t lastOfBurst = 0x40, asksInfo = 0x20, rewrittenFlags = 0x60;
    std::uint16_t flags = 0;
    std::uint16_t sequence = 0;  // of every new packet, from 0, wraps
    bool operator==(const STREAM_DATA&) const = default;
};

// | 11 | 1 + phase     | feedback |    fill    | fillTarget |   -   |   feedback
// | 11 | 1 + phase + 8 |     ?    | resendFrom | resendLast |   -   |   resend request
struct INFO_ANS {
    static constexpr std::uint16_t id = 11;
    static constexpr std::uint16_t resendFlag = 0x0008, phaseMask = 0x0180, phaseInvert = 0x0100;
    bool accepted = true;  // the host does not ask: either kind counts whatever bit 0 is
    bool isResend = false;
    bool wantsInvert = false;  // flags & 0x180 == 0x100
    std::uint16_t feedback = 0;
    std::uint16_t fill = 0;        // resend request: resendFrom, the oldest sequence wanted
    std::uint16_t fillTarget = 0;  // resend request: resendLast
    std::uint16_t resendFrom() const noexcept { return fill; }
    std::uint16_t resendLast() const noexcept { return fillTarget; }
    bool operator==(const INFO_ANS&) const = default;
};

// ---- the target's log, on a socket of its own ----

constexpr std::uint16_t targetLogPort = 19642;  // LOG_REQ goes there, not to the control port

// | 40 |   0   | 1 or 0 |   -   |   -   |   -   |
struct LOG_REQ {
    static constexpr std::uint16_t id = 40, answer = 41;
    bool wanted = false;
    bool operator==(const LOG_REQ&) const = default;
};

// | 41 |   1   |  kind  |   -   |   -   |   -   | text, no terminator
struct LOG_ANS {
    static constexpr std::uint16_t id = 41;
    static constexpr std::uint16_t textLine = 2;
    bool accepted = true;
    std::uint16_t kind = 0;
    std::string text{};
    bool operator==(const LOG_ANS&) const = default;
};

// ---- both directions ----

ZENNO::Bytes write(const SUPPORT_REQ&);
ZENNO::Bytes write(const SUPPORT_ANS&);
ZENNO::Bytes write(const LATENCY_REQ&);
ZENNO::Bytes write(const LATENCY_ANS&);
ZENNO::Bytes write(const DATASIZE_REQ&);
ZENNO::Bytes write(const DATASIZE_ANS&);
ZENNO::Bytes write(const PROFILE_REQ&);
ZENNO::Bytes write(const PROFILE_ANS&);
ZENNO::Bytes write(const NOPBREAK_REQ&);
ZENNO::Bytes write(const CONNECTPRE_REQ&);
ZENNO::Bytes write(const CONNECTPRE_ANS&);
ZENNO::Bytes write(const CLIENT_REQ&);
ZENNO::Bytes write(const CLIENT_ANS&);
ZENNO::Bytes write(const CONNECT_REQ&);
ZENNO::Bytes write(const CONNECT_ANS&);
ZENNO::Bytes write(const DSICONNECT_REQ&);
ZENNO::Bytes write(const DSICONNECT_ANS&);
ZENNO::Bytes write(const INFO_ANS&);
ZENNO::Bytes write(const LOG_REQ&);
ZENNO::Bytes write(const LOG_ANS&);
// The header of a data packet with a payload of n bytes, into the front of `out`; allocates
// nothing.
void writeStreamHeader(std::span<std::uint8_t> out, const STREAM_DATA&, std::size_t n) noexcept;
// Rewrites bits 0x60 of a built packet's flags; all other bytes stay.
void rewriteStreamFlags(std::span<std::uint8_t> packet, std::uint16_t flags) noexcept;

template <class M>
std::optional<M> read(const PacketView& packet);

template <>
std::optional<SUPPORT_REQ> read<SUPPORT_REQ>(const PacketView&);
template <>
std::optional<SUPPORT_ANS> read<SUPPORT_ANS>(const PacketView&);
template <>
std::optional<LATENCY_REQ> read<LATENCY_REQ>(const PacketView&);
template <>
std::optional<LATENCY_ANS> read<LATENCY_ANS>(const PacketView&);
template <>
std::optional<DATASIZE_REQ> read<DATASIZE_REQ>(const PacketView&);
template <>
std::optional<DATASIZE_ANS> read<DATASIZE_ANS>(const PacketView&);
template <>
std::optional<PROFILE_REQ> read<PROFILE_REQ>(const PacketView&);
template <>
std::optional<PROFILE_ANS> read<PROFILE_ANS>(const PacketView&);
template <>
std::optional<NOPBREAK_REQ> read<NOPBREAK_REQ>(const PacketView&);
template <>
std::optional<CONNECTPRE_REQ> read<CONNECTPRE_REQ>(const PacketView&);
template <>
std::optional<CONNECTPRE_ANS> read<CONNECTPRE_ANS>(const PacketView&);
template <>
std::optional<CLIENT_REQ> read<CLIENT_REQ>(const PacketView&);
template <>
std::optional<CLIENT_ANS> read<CLIENT_ANS>(const PacketView&);
template <>
std::optional<CONNECT_REQ> read<CONNECT_REQ>(const PacketView&);
template <>
std::optional<CONNECT_ANS> read<CONNECT_ANS>(const PacketView&);
template <>
std::optional<DSICONNECT_REQ> read<DSICONNECT_REQ>(const PacketView&);
template <>
std::optional<DSICONNECT_ANS> read<DSICONNECT_ANS>(const PacketView&);
template <>
std::optional<STREAM_DATA> read<STREAM_DATA>(const PacketView&);
template <>
std::optional<INFO_ANS> read<INFO_ANS>(const PacketView&);
template <>
std::optional<LOG_REQ> read<LOG_REQ>(const PacketView&);
template <>
std::optional<LOG_ANS> read<LOG_ANS>(const PacketView&);

// ---- words that are worked out (wire/StreamWords.cpp) ----

// The probe pattern: byte i is (i + 122) & 0xff. Its sum is taken in 16 bits.
void fillProbe(std::span<std::uint8_t> body) noexcept;
std::uint16_t probeSum(ConstBytes body) noexcept;

// What CONNECTPRE_REQ carries in place of the format: the class of the sample format in bits 8..15,
// the latency (100 µs) in bits 16..31, all other bits as they are.
std::uint64_t classWord(SinkConfig format, std::uint16_t latency) noexcept;

// The feedback value of an INFO_ANS: 1.14 fixed point, 16384 is 1.0; positive: the target holds
// more than it wants. `encoding` is 0 to 3, as the log shows it.
struct FeedbackValue {
    int encoding = 0;
    std::int16_t value = 0;
    bool operator==(const FeedbackValue&) const = default;
};
FeedbackValue decodeFeedback(const INFO_ANS&) noexcept;
// The target's side: an INFO_ANS that carries `value` in the encoding asked for (1 or 2), or `fill`
// and `fillTarget` as they are (3); any other encoding says 0. A value out of reach becomes the
// nearest within. Encoding 1 reaches -16382..32766 in steps of 2, odd values towards zero (the word
// of -16384 would be 0, which says another thing); encoding 2 reaches -16384..16383.
INFO_ANS encodeFeedback(int encoding, std::int16_t value, std::uint16_t fill,
                        std::uint16_t fillTarget) noexcept;

}  // namespace VELMORA::wire
