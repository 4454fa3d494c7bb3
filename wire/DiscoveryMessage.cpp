#include "wire/DiscoveryMessage.h"

#include "wire/Codec.h"

namespace VELMORA::wire {

// ---- who is there, and which sinks ----

ZENNO::Bytes write(const FIND_REQ& m) {
    return makePacket(m.id, 0, {m.mode});
}
template <>
std::optional<FIND_REQ> read<FIND_REQ>(const PacketView& p) {
    if (p.id() != FIND_REQ::id) return std::nullopt;
    return FIND_REQ{.mode = p.arg16(8)};
}

ZENNO::Bytes write(const FIND_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), argOf(m.productID), bytesOf(m.targetName));
}
template <>
std::optional<FIND_ANS> read<FIND_ANS>(const PacketView& p) {
    if (p.id() != FIND_ANS::id) return std::nullopt;
    return FIND_ANS{
        .accepted = p.accepted(), .productID = p.arg64(), .targetName = std::string(p.text())};
}

ZENNO::Bytes write(const SINK_REQ& m) {
    return makePacket(m.id, 0, {m.sinkNo, 0, 0, 1});
}
template <>
std::optional<SINK_REQ> read<SINK_REQ>(const PacketView& p) {
    if (p.id() != SINK_REQ::id) return std::nullopt;
    return SINK_REQ{.sinkNo = p.arg16(8)};
}

ZENNO::Bytes write(const SINK_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.count, 0, m.port, m.version},
                      bytesOf(m.sinkName));
}
template <>
std::optional<SINK_ANS> read<SINK_ANS>(const PacketView& p) {
    if (p.id() != SINK_ANS::id) return std::nullopt;
    return SINK_ANS{.accepted = p.accepted(),
                    .count = p.arg16(8),
                    .port = p.arg16(12),
                    .version = p.arg16(14),
                    .sinkName = std::string(p.text())};
}

ZENNO::Bytes write(const CONFIG_REQ& m) {
    return makePacket(m.id, 0);
}
template <>
std::optional<CONFIG_REQ> read<CONFIG_REQ>(const PacketView& p) {
    if (p.id() != CONFIG_REQ::id) return std::nullopt;
    return CONFIG_REQ{};
}

ZENNO::Bytes write(const CONFIG_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {}, bytesOf(m.configText));
}
template <>
std::optional<CONFIG_ANS> read<CONFIG_ANS>(const PacketView& p) {
    if (p.id() != CONFIG_ANS::id) return std::nullopt;
    return CONFIG_ANS{.accepted = p.accepted(), .configText = std::string(p.text())};
}

ZENNO::Bytes write(const HELLO_REQ& m) {
    return makePacket(m.id, requestFlag, argOf(m.ownID), bytesOf(m.clientName));
}
template <>
std::optional<HELLO_REQ> read<HELLO_REQ>(const PacketView& p) {
    if (p.id() != HELLO_REQ::id) return std::nullopt;
    return HELLO_REQ{.ownID = p.arg64(), .clientName = std::string(p.text())};
}

ZENNO::Bytes write(const HELLO_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted));
}
template <>
std::optional<HELLO_ANS> read<HELLO_ANS>(const PacketView& p) {
    if (p.id() != HELLO_ANS::id) return std::nullopt;
    return HELLO_ANS{.accepted = p.accepted()};
}

ZENNO::Bytes write(const NOTIFY& m) {
    return makePacket(m.id, 0, {m.word});
}
template <>
std::optional<NOTIFY> read<NOTIFY>(const PacketView& p) {
    if (p.id() != NOTIFY::id) return std::nullopt;
    return NOTIFY{.word = p.arg16(8)};
}

// ---- transfer of a byte buffer ----

ZENNO::Bytes write(const TRANSFER_REQ& m) {
    return makePacket(m.id, 0, {m.channel});
}
template <>
std::optional<TRANSFER_REQ> read<TRANSFER_REQ>(const PacketView& p) {
    if (p.id() != TRANSFER_REQ::id) return std::nullopt;
    return TRANSFER_REQ{.channel = p.arg16(8)};
}

ZENNO::Bytes write(const TRANSFER_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted),
                      {m.channel, m.second, m.blockPackets1, m.blocks1});
}
template <>
std::optional<TRANSFER_ANS> read<TRANSFER_ANS>(const PacketView& p) {
    if (p.id() != TRANSFER_ANS::id) return std::nullopt;
    return TRANSFER_ANS{.accepted = p.accepted(),
                        .channel = p.arg16(8),
                        .second = p.arg16(10),
                        .blockPackets1 = p.arg16(12),
                        .blocks1 = p.arg16(14)};
}

ZENNO::Bytes write(const TRANSFER_DATA& m, ConstBytes data) {
    return makePacket(m.id, 0, {m.channel, m.seq, m.index, m.block}, data);
}
template <>
std::optional<TRANSFER_DATA> read<TRANSFER_DATA>(const PacketView& p) {
    if (p.id() != TRANSFER_DATA::id) return std::nullopt;
    return TRANSFER_DATA{
        .channel = p.arg16(8), .seq = p.arg16(10), .index = p.arg16(12), .block = p.arg16(14)};
}

ZENNO::Bytes write(const TRANSFER_ACK& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.channel, m.seq});
}
template <>
std::optional<TRANSFER_ACK> read<TRANSFER_ACK>(const PacketView& p) {
    if (p.id() != TRANSFER_ACK::id) return std::nullopt;
    return TRANSFER_ACK{.accepted = p.accepted(), .channel = p.arg16(8), .seq = p.arg16(10)};
}

ZENNO::Bytes write(const TRANSFEREND_REQ& m) {
    return makePacket(m.id, 0, {m.channel, m.crc, m.status});
}
template <>
std::optional<TRANSFEREND_REQ> read<TRANSFEREND_REQ>(const PacketView& p) {
    if (p.id() != TRANSFEREND_REQ::id) return std::nullopt;
    return TRANSFEREND_REQ{.channel = p.arg16(8), .crc = p.arg16(10), .status = p.arg16(12)};
}

ZENNO::Bytes write(const TRANSFEREND_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.channel, m.crc, m.status});
}
template <>
std::optional<TRANSFEREND_ANS> read<TRANSFEREND_ANS>(const PacketView& p) {
    if (p.id() != TRANSFEREND_ANS::id) return std::nullopt;
    return TRANSFEREND_ANS{
        .accepted = p.accepted(), .channel = p.arg16(8), .crc = p.arg16(10), .status = p.arg16(12)};
}

// ---- settings and texts of a target ----

ZENNO::Bytes write(const INFOA_REQ& m) {
    return makePacket(m.id, 0);
}
template <>
std::optional<INFOA_REQ> read<INFOA_REQ>(const PacketView& p) {
    if (p.id() != INFOA_REQ::id) return std::nullopt;
    return INFOA_REQ{};
}

ZENNO::Bytes write(const INFOA_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {}, bytesOf(m.text));
}
template <>
std::optional<INFOA_ANS> read<INFOA_ANS>(const PacketView& p) {
    if (p.id() != INFOA_ANS::id) return std::nullopt;
    return INFOA_ANS{.accepted = p.accepted(), .text = std::string(p.text())};
}

ZENNO::Bytes write(const INFOB_REQ& m) {
    return makePacket(m.id, 0);
}
template <>
std::optional<INFOB_REQ> read<INFOB_REQ>(const PacketView& p) {
    if (p.id() != INFOB_REQ::id) return std::nullopt;
    return INFOB_REQ{};
}

ZENNO::Bytes write(const INFOB_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {}, bytesOf(m.text));
}
template <>
std::optional<INFOB_ANS> read<INFOB_ANS>(const PacketView& p) {
    if (p.id() != INFOB_ANS::id) return std::nullopt;
    return INFOB_ANS{.accepted = p.accepted(), .text = std::string(p.text())};
}

ZENNO::Bytes write(const VALUE_REQ& m) {
    return makePacket(m.id, 0, {m.value});
}
template <>
std::optional<VALUE_REQ> read<VALUE_REQ>(const PacketView& p) {
    if (p.id() != VALUE_REQ::id) return std::nullopt;
    return VALUE_REQ{.value = p.arg16(8)};
}

ZENNO::Bytes write(const VALUE_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.value});
}
template <>
std::optional<VALUE_ANS> read<VALUE_ANS>(const PacketView& p) {
    if (p.id() != VALUE_ANS::id) return std::nullopt;
    return VALUE_ANS{.accepted = p.accepted(), .value = p.arg16(8)};
}

ZENNO::Bytes write(const INFOINDEX_REQ& m) {
    return makePacket(m.id, 0, {m.index});
}
template <>
std::optional<INFOINDEX_REQ> read<INFOINDEX_REQ>(const PacketView& p) {
    if (p.id() != INFOINDEX_REQ::id) return std::nullopt;
    return INFOINDEX_REQ{.index = p.arg16(8)};
}

ZENNO::Bytes write(const INFOINDEX_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {}, bytesOf(m.text));
}
template <>
std::optional<INFOINDEX_ANS> read<INFOINDEX_ANS>(const PacketView& p) {
    if (p.id() != INFOINDEX_ANS::id) return std::nullopt;
    return INFOINDEX_ANS{.accepted = p.accepted(), .text = std::string(p.text())};
}

ZENNO::Bytes write(const ITEM_REQ& m) {
    return makePacket(m.id, 0, {m.itemNo});
}
template <>
std::optional<ITEM_REQ> read<ITEM_REQ>(const PacketView& p) {
    if (p.id() != ITEM_REQ::id) return std::nullopt;
    return ITEM_REQ{.itemNo = p.arg16(8)};
}

ZENNO::Bytes write(const ITEM_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.itemNo, m.type, m.lower, m.upper},
                      bytesOf(m.label));
}
template <>
std::optional<ITEM_ANS> read<ITEM_ANS>(const PacketView& p) {
    if (p.id() != ITEM_ANS::id) return std::nullopt;
    return ITEM_ANS{.accepted = p.accepted(),
                    .itemNo = p.arg16(8),
                    .type = p.arg16(10),
                    .lower = p.arg16(12),
                    .upper = p.arg16(14),
                    .label = std::string(p.text())};
}

ZENNO::Bytes write(const ITEMVALUE_REQ& m) {
    const bool hasText = m.mode == ITEMVALUE_REQ::modeWrite;
    return makePacket(m.id, 0, {m.itemNo, m.mode, m.value},
                      hasText ? bytesOf(m.text) : ConstBytes());
}
template <>
std::optional<ITEMVALUE_REQ> read<ITEMVALUE_REQ>(const PacketView& p) {
    if (p.id() != ITEMVALUE_REQ::id) return std::nullopt;
    ITEMVALUE_REQ m{.itemNo = p.arg16(8), .mode = p.arg16(10), .value = p.arg16(12)};
    if (m.mode == ITEMVALUE_REQ::modeWrite) m.text = p.text();
    return m;
}

ZENNO::Bytes write(const ITEMVALUE_ANS& m) {
    return makePacket(m.id, answerFlags(m.accepted), {m.itemNo, m.current, 0, m.second},
                      bytesOf(m.text));
}
template <>
std::optional<ITEMVALUE_ANS> read<ITEMVALUE_ANS>(const PacketView& p) {
    if (p.id() != ITEMVALUE_ANS::id) return std::nullopt;
    return ITEMVALUE_ANS{.accepted = p.accepted(),
                         .itemNo = p.arg16(8),
                         .current = p.arg16(10),
                         .second = p.arg16(14),
                         .text = std::string(p.text())};
}

}  // namespace VELMORA::wire
