#include "wire/StreamMessage.h"

#include <algorithm>

#include "wire/Codec.h"

namespace VELMORA::wire {

// ---- capabilities ----

ZENNO::Bytes write(const SUPPORT_REQ& m) {
    return makePacket(m.id, 0, argOf(m.selector));
}
template <>
std::optional<SUPPORT_REQ> read<SUPPORT_REQ>(const PacketView& p) {
    if (p.id() != SUPPORT_REQ::id) return std::nullopt;
    return SUPPORT_REQ{.selector = p.arg64()};
}

ZENNO::Bytes write(const SUPPORT_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), argOf(m.mask));
}
template <>
std::optional<SUPPORT_ANS> read<SUPPORT_ANS>(const PacketView& p) {
    if (p.id() != SUPPORT_ANS::id) return std::nullopt;
    return SUPPORT_ANS{.accepted = p.accepted(), .mask = p.arg64()};
}

ZENNO::Bytes write(const LATENCY_REQ& m) {
    return makePacket(m.id, 0, {m.wanted});
}
template <>
std::optional<LATENCY_REQ> read<LATENCY_REQ>(const PacketView& p) {
    if (p.id() != LATENCY_REQ::id) return std::nullopt;
    return LATENCY_REQ{.wanted = p.arg16(8)};
}

ZENNO::Bytes write(const LATENCY_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.latency, m.hwLatency});
}
template <>
std::optional<LATENCY_ANS> read<LATENCY_ANS>(const PacketView& p) {
    if (p.id() != LATENCY_ANS::id) return std::nullopt;
    return LATENCY_ANS{.accepted = p.accepted(), .latency = p.arg16(8), .hwLatency = p.arg16(10)};
}

ZENNO::Bytes write(const DATASIZE_REQ& m) {
    ZENNO::Bytes pattern(m.probeBytes);
    fillProbe(pattern);
    return makePacket(m.id, 0, {}, pattern);
}
template <>
std::optional<DATASIZE_REQ> read<DATASIZE_REQ>(const PacketView& p) {
    if (p.id() != DATASIZE_REQ::id) return std::nullopt;
    return DATASIZE_REQ{.probeBytes = static_cast<std::uint16_t>(p.payload().size())};
}

ZENNO::Bytes write(const DATASIZE_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.mtu, m.maxBurst, m.seenLength, m.seenSum});
}
template <>
std::optional<DATASIZE_ANS> read<DATASIZE_ANS>(const PacketView& p) {
    if (p.id() != DATASIZE_ANS::id) return std::nullopt;
    return DATASIZE_ANS{.accepted = p.accepted(),
                        .mtu = p.arg16(8),
                        .maxBurst = p.arg16(10),
                        .seenLength = p.arg16(12),
                        .seenSum = p.arg16(14)};
}

ZENNO::Bytes write(const PROFILE_REQ& m) {
    return makePacket(m.id, 0, argOf(m.config.word));
}
template <>
std::optional<PROFILE_REQ> read<PROFILE_REQ>(const PacketView& p) {
    if (p.id() != PROFILE_REQ::id) return std::nullopt;
    return PROFILE_REQ{.config = SinkConfig(p.arg64())};
}

ZENNO::Bytes write(const PROFILE_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.minCycle10, m.maxCycle10, m.profileFlags});
}
template <>
std::optional<PROFILE_ANS> read<PROFILE_ANS>(const PacketView& p) {
    if (p.id() != PROFILE_ANS::id) return std::nullopt;
    return PROFILE_ANS{.accepted = p.accepted(),
                       .minCycle10 = p.arg16(8),
                       .maxCycle10 = p.arg16(10),
                       .profileFlags = p.arg16(12)};
}

ZENNO::Bytes write(const NOPBREAK_REQ& m) {
    return makePacket(m.id, 0);
}
template <>
std::optional<NOPBREAK_REQ> read<NOPBREAK_REQ>(const PacketView& p) {
    if (p.id() != NOPBREAK_REQ::id) return std::nullopt;
    return NOPBREAK_REQ{};
}

// ---- opening and closing a stream ----

ZENNO::Bytes write(const CONNECTPRE_REQ& m) {
    return makePacket(m.id, 0, argOf(m.classWord));
}
template <>
std::optional<CONNECTPRE_REQ> read<CONNECTPRE_REQ>(const PacketView& p) {
    if (p.id() != CONNECTPRE_REQ::id) return std::nullopt;
    return CONNECTPRE_REQ{.classWord = p.arg64()};
}

ZENNO::Bytes write(const CONNECTPRE_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), argOf(m.word));
}
template <>
std::optional<CONNECTPRE_ANS> read<CONNECTPRE_ANS>(const PacketView& p) {
    if (p.id() != CONNECTPRE_ANS::id) return std::nullopt;
    return CONNECTPRE_ANS{.accepted = p.accepted(), .word = p.arg64()};
}

ZENNO::Bytes write(const CLIENT_REQ& m) {
    return makePacket(m.id, requestFlag, argOf(m.productId), bytesOf(m.name));
}
template <>
std::optional<CLIENT_REQ> read<CLIENT_REQ>(const PacketView& p) {
    if (p.id() != CLIENT_REQ::id) return std::nullopt;
    return CLIENT_REQ{.productId = p.arg64(), .name = std::string(p.text())};
}

ZENNO::Bytes write(const CLIENT_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted));
}
template <>
std::optional<CLIENT_ANS> read<CLIENT_ANS>(const PacketView& p) {
    if (p.id() != CLIENT_ANS::id) return std::nullopt;
    return CLIENT_ANS{.accepted = p.accepted()};
}

ZENNO::Bytes write(const CONNECT_REQ& m) {
    return makePacket(m.id, 0, argOf(m.config.word));
}
template <>
std::optional<CONNECT_REQ> read<CONNECT_REQ>(const PacketView& p) {
    if (p.id() != CONNECT_REQ::id) return std::nullopt;
    return CONNECT_REQ{.config = SinkConfig(p.arg64())};
}

ZENNO::Bytes write(const CONNECT_ANS& m) {
    const auto flags =
        static_cast<std::uint16_t>(answerFlags(m.accepted) | phaseFlags(m.wantsInvert));
    return makePacket(m.id, flags, {m.streamPort});
}
template <>
std::optional<CONNECT_ANS> read<CONNECT_ANS>(const PacketView& p) {
    if (p.id() != CONNECT_ANS::id) return std::nullopt;
    return CONNECT_ANS{
        .accepted = p.accepted(), .wantsInvert = asksInvert(p.flags()), .streamPort = p.arg16(8)};
}

ZENNO::Bytes write(const DSICONNECT_REQ& m) {
    return makePacket(m.id, 0);
}
template <>
std::optional<DSICONNECT_REQ> read<DSICONNECT_REQ>(const PacketView& p) {
    if (p.id() != DSICONNECT_REQ::id) return std::nullopt;
    return DSICONNECT_REQ{};
}

ZENNO::Bytes write(const DSICONNECT_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted));
}
template <>
std::optional<DSICONNECT_ANS> read<DSICONNECT_ANS>(const PacketView& p) {
    if (p.id() != DSICONNECT_ANS::id) return std::nullopt;
    return DSICONNECT_ANS{.accepted = p.accepted()};
}

// ---- the stream itself ----

template <>
std::optional<STREAM_DATA> read<STREAM_DATA>(const PacketView& p) {
    if (p.id() != STREAM_DATA::id) return std::nullopt;
    return STREAM_DATA{.flags = p.flags(), .sequence = p.arg16(8)};
}

void writeStreamHeader(std::span<std::uint8_t> out, const STREAM_DATA& m, std::size_t n) noexcept {
    writeHeader(out, sizeWordFor(n), m.id, m.flags, {m.sequence});
}

void rewriteStreamFlags(std::span<std::uint8_t> packet, std::uint16_t flags) noexcept {
    constexpr unsigned mask = STREAM_DATA::rewrittenFlags;
    store16(packet, 6, static_cast<std::uint16_t>((load16(packet, 6) & ~mask) | (flags & mask)));
}

ZENNO::Bytes write(const INFO_ANS& m) {
    const auto flags =
        static_cast<std::uint16_t>(answerFlags(m.accepted) | phaseFlags(m.wantsInvert) |
                                   (m.isResend ? INFO_ANS::resendFlag : 0));
    return makePacket(m.id, flags, {m.feedback, m.fill, m.fillTarget});
}
template <>
std::optional<INFO_ANS> read<INFO_ANS>(const PacketView& p) {
    if (p.id() != INFO_ANS::id) return std::nullopt;
    return INFO_ANS{.accepted = p.accepted(),
                    .isResend = (p.flags() & INFO_ANS::resendFlag) != 0,
                    .wantsInvert = asksInvert(p.flags()),
                    .feedback = p.arg16(8),
                    .fill = p.arg16(10),
                    .fillTarget = p.arg16(12)};
}

// ---- the target's log ----

ZENNO::Bytes write(const LOG_REQ& m) {
    return makePacket(m.id, 0, {static_cast<std::uint16_t>(m.wanted ? 1 : 0)});
}
template <>
std::optional<LOG_REQ> read<LOG_REQ>(const PacketView& p) {
    if (p.id() != LOG_REQ::id) return std::nullopt;
    return LOG_REQ{.wanted = p.arg16(8) != 0};
}

ZENNO::Bytes write(const LOG_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.kind}, bytesOf(m.text));
}
template <>
std::optional<LOG_ANS> read<LOG_ANS>(const PacketView& p) {
    if (p.id() != LOG_ANS::id) return std::nullopt;
    return LOG_ANS{.accepted = p.accepted(), .kind = p.arg16(8), .text = std::string(p.text())};
}

}  // namespace VELMORA::wire
