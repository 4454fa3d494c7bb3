// Every message of discovery, both directions. The conventions are those of wire/StreamMessage.h:
// header, filler, drawings and the number space of ids are shared. Bit 0 of an answer's flags clear
// is a refusal, and no other bit is read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/IPAddress.h"
#include "wire/StreamMessage.h"

namespace VELMORA::wire {

constexpr std::uint16_t ControlPort = 19642;  // a target's control port
constexpr std::uint16_t NotifyPort = 19643;   // targets send NOTIFY there

// ---- who is there, and which sinks ----

// |  0 |   0   |  mode |   -   |   -   |   -   |
struct FIND_REQ {
    static constexpr std::uint16_t id = 0, answer = 1;
    std::uint16_t mode = 0;  // multicast: 0 a search, 1 the watch. Unicast: 0
    bool operator==(const FIND_REQ&) const = default;
};

// |  1 |   1   | productID | targetName
struct FIND_ANS {
    static constexpr std::uint16_t id = 1;
    bool accepted = true;
    std::uint64_t productID = 0;
    std::string targetName{};
    bool operator==(const FIND_ANS&) const = default;
};

// |  2 |   0   | sinkNo |   -   |   -   |   1   |
struct SINK_REQ {
    static constexpr std::uint16_t id = 2, answer = 3;
    std::uint16_t sinkNo = 0;  // 0 asks for the count
    bool operator==(const SINK_REQ&) const = default;
};

// One layout, two readings: to sinkNo 0 the host reads `count`, and only when `port` is 0; to a
// sinkNo it reads port, version and name.
//
// |  3 |   1   | count |   -   |   0   |    -    |             to sinkNo 0
// |  3 |   1   |   -   |   -   |  port | version | sinkName    to a sinkNo
struct SINK_ANS {
    static constexpr std::uint16_t id = 3;
    bool accepted = true;
    std::uint16_t count = 0;
    std::uint16_t port = 0;     // UDP port of the sink, host order; 0: no such sink
    std::uint16_t version = 0;  // of the sink's protocol
    std::string sinkName{};
    bool operator==(const SINK_ANS&) const = default;
};

// | 16 |   0   |   -   |   -   |   -   |   -   |
struct CONFIG_REQ {
    static constexpr std::uint16_t id = 16, answer = 17;
    bool operator==(const CONFIG_REQ&) const = default;
};

// | 17 |   1   |   -   |   -   |   -   |   -   | configText
struct CONFIG_ANS {
    static constexpr std::uint16_t id = 17;
    bool accepted = true;
    std::string configText{};  // "[myaddress]" may stand in it
    bool operator==(const CONFIG_ANS&) const = default;
};

// | 22 |   1   | ownID | clientName        flags 1, unlike every other request of discovery
struct HELLO_REQ {
    static constexpr std::uint16_t id = 22, answer = 23;
    std::uint64_t ownID = 0;
    std::string clientName{};
    bool operator==(const HELLO_REQ&) const = default;
};

// | 23 |   1   |   -   |   -   |   -   |   -   |
struct HELLO_ANS {
    static constexpr std::uint16_t id = 23;
    bool accepted = true;
    bool operator==(const HELLO_ANS&) const = default;
};

// | 0x8001 | 0 |  word |   -   |   -   |   -   |   target to the group, NotifyPort; nobody answers
struct NOTIFY {
    static constexpr std::uint16_t id = 0x8001;
    std::uint16_t word = 0;  // changes with every notification; 0: the target has started anew
    bool operator==(const NOTIFY&) const = default;
};

// ---- transfer of a byte buffer ----

// | 26 |   0   | channel |   -   |   -   |   -   |
struct TRANSFER_REQ {
    static constexpr std::uint16_t id = 26, answer = 27;
    std::uint16_t channel = 0;  // 0 asks for the channel count, else number + 1
    bool operator==(const TRANSFER_REQ&) const = default;
};

// | 27 |   1   | channels | burst limit |   -   |   -   |                          to channel 0
// | 27 |   1   | channel | packet bytes - 1 | block packets - 1 | blocks - 1 |    to a channel
struct TRANSFER_ANS {
    static constexpr std::uint16_t id = 27;
    static constexpr std::uint16_t noLimit = 65535;
    bool accepted = true;
    std::uint16_t channel = 0;        // the number of channels, or the channel again
    std::uint16_t second = 0;         // byte limit of a burst (65535 none), or packet bytes - 1
    std::uint16_t blockPackets1 = 0;  // packets of a block less 1
    std::uint16_t blocks1 = 0;        // blocks less 1
    bool operator==(const TRANSFER_ANS&) const = default;
};

// | 28 |   0   | channel, lastMark |  seq  | index | block | data
struct TRANSFER_DATA {  // the header alone
    static constexpr std::uint16_t id = 28, answer = 29;
    static constexpr std::uint16_t lastMark = 0x8000;
    std::uint16_t channel = 0;  // with lastMark or'ed in on the last packet of a burst
    std::uint16_t seq = 0;
    std::uint16_t index = 0;
    std::uint16_t block = 0;
    bool operator==(const TRANSFER_DATA&) const = default;
};

// | 29 |   1   | channel |  seq  |   -   |   -   |
struct TRANSFER_ACK {
    static constexpr std::uint16_t id = 29;
    bool accepted = true;
    std::uint16_t channel = 0;
    std::uint16_t seq = 0;  // that the target has reached
    bool operator==(const TRANSFER_ACK&) const = default;
};

// | 30 |   0   | channel |  crc  | status |   -   |
struct TRANSFEREND_REQ {
    static constexpr std::uint16_t id = 30, answer = 31;
    std::uint16_t channel = 0, crc = 0, status = 0;
    bool operator==(const TRANSFEREND_REQ&) const = default;
};

// | 31 |   1   | channel |  crc  | status |   -   |
struct TRANSFEREND_ANS {
    static constexpr std::uint16_t id = 31;
    static constexpr std::uint16_t complete = 65535;
    bool accepted = true;
    std::uint16_t channel = 0, crc = 0, status = 0;
    bool operator==(const TRANSFEREND_ANS&) const = default;
};

// ---- settings and texts of a target ----

// | 32 |   0   |   -   |   -   |   -   |   -   |
struct INFOA_REQ {
    static constexpr std::uint16_t id = 32, answer = 33;
    bool operator==(const INFOA_REQ&) const = default;
};

// | 33 |   1   |   -   |   -   |   -   |   -   | text
struct INFOA_ANS {
    static constexpr std::uint16_t id = 33;
    bool accepted = true;
    std::string text{};
    bool operator==(const INFOA_ANS&) const = default;
};

// | 34 |   0   |   -   |   -   |   -   |   -   |
struct INFOB_REQ {
    static constexpr std::uint16_t id = 34, answer = 35;
    bool operator==(const INFOB_REQ&) const = default;
};

// | 35 |   1   |   -   |   -   |   -   |   -   | text
struct INFOB_ANS {
    static constexpr std::uint16_t id = 35;
    bool accepted = true;
    std::string text{};
    bool operator==(const INFOB_ANS&) const = default;
};

// | 36 |   0   | value |   -   |   -   |   -   |
struct VALUE_REQ {
    static constexpr std::uint16_t id = 36, answer = 37;
    std::uint16_t value = 0;
    bool operator==(const VALUE_REQ&) const = default;
};

// | 37 |   1   | value |   -   |   -   |   -   |
struct VALUE_ANS {
    static constexpr std::uint16_t id = 37;
    bool accepted = true;
    std::uint16_t value = 0;  // the request's again
    bool operator==(const VALUE_ANS&) const = default;
};

// | 44 |   0   | index |   -   |   -   |   -   |
struct INFOINDEX_REQ {
    static constexpr std::uint16_t id = 44, answer = 45;
    std::uint16_t index = 0;
    bool operator==(const INFOINDEX_REQ&) const = default;
};

// | 45 |   1   |   -   |   -   |   -   |   -   | text
struct INFOINDEX_ANS {
    static constexpr std::uint16_t id = 45;
    bool accepted = true;
    std::string text{};
    bool operator==(const INFOINDEX_ANS&) const = default;
};

// | 48 |   0   | itemNo |   -   |   -   |   -   |
struct ITEM_REQ {
    static constexpr std::uint16_t id = 48, answer = 49;
    std::uint16_t itemNo = 0;  // 0 asks for the count
    bool operator==(const ITEM_REQ&) const = default;
};

// | 49 |   1   |  count |   -   |   -   |   -   |           to item 0
// | 49 |   1   | itemNo |  type | lower | upper | label     to an item
struct ITEM_ANS {
    static constexpr std::uint16_t id = 49;
    bool accepted = true;
    std::uint16_t itemNo = 0;  // the count, or the number again
    std::uint16_t type = 0;
    std::uint16_t lower = 0;  // i16 for type 2
    std::uint16_t upper = 0;  // i16 for type 2
    std::string label{};
    bool operator==(const ITEM_ANS&) const = default;
};

// | 50 |   0   | itemNo |  mode | value |   -   | text, with mode 1 alone
struct ITEMVALUE_REQ {
    static constexpr std::uint16_t id = 50, answer = 51;
    static constexpr std::uint16_t modeRead = 0, modeWrite = 1, modeAlternative = 2, modeLabel = 3;
    std::uint16_t itemNo = 0;
    std::uint16_t mode = 0;
    std::uint16_t value = 0;
    std::string text{};  // neither written nor read with another mode than modeWrite
    bool operator==(const ITEMVALUE_REQ&) const = default;
};

// | 51 |   1   | itemNo | current |   -   | second | text
struct ITEMVALUE_ANS {
    static constexpr std::uint16_t id = 51;
    bool accepted = true;
    std::uint16_t itemNo = 0;   // the request's again
    std::uint16_t current = 0;  // i16 for type 2
    std::uint16_t second = 0;   // i16 for type 2
    std::string text{};
    bool operator==(const ITEMVALUE_ANS&) const = default;
};

// ---- both directions ----

ZENNO::Bytes write(const FIND_REQ&);
ZENNO::Bytes write(const FIND_ANS&);
ZENNO::Bytes write(const SINK_REQ&);
ZENNO::Bytes write(const SINK_ANS&);
ZENNO::Bytes write(const CONFIG_REQ&);
ZENNO::Bytes write(const CONFIG_ANS&);
ZENNO::Bytes write(const HELLO_REQ&);
ZENNO::Bytes write(const HELLO_ANS&);
ZENNO::Bytes write(const NOTIFY&);
ZENNO::Bytes write(const TRANSFER_REQ&);
ZENNO::Bytes write(const TRANSFER_ANS&);
ZENNO::Bytes write(const TRANSFER_DATA&, ConstBytes data);
ZENNO::Bytes write(const TRANSFER_ACK&);
ZENNO::Bytes write(const TRANSFEREND_REQ&);
ZENNO::Bytes write(const TRANSFEREND_ANS&);
ZENNO::Bytes write(const INFOA_REQ&);
ZENNO::Bytes write(const INFOA_ANS&);
ZENNO::Bytes write(const INFOB_REQ&);
ZENNO::Bytes write(const INFOB_ANS&);
ZENNO::Bytes write(const VALUE_REQ&);
ZENNO::Bytes write(const VALUE_ANS&);
ZENNO::Bytes write(const INFOINDEX_REQ&);
ZENNO::Bytes write(const INFOINDEX_ANS&);
ZENNO::Bytes write(const ITEM_REQ&);
ZENNO::Bytes write(const ITEM_ANS&);
ZENNO::Bytes write(const ITEMVALUE_REQ&);
ZENNO::Bytes write(const ITEMVALUE_ANS&);

template <>
std::optional<FIND_REQ> read<FIND_REQ>(const PacketView&);
template <>
std::optional<FIND_ANS> read<FIND_ANS>(const PacketView&);
template <>
std::optional<SINK_REQ> read<SINK_REQ>(const PacketView&);
template <>
std::optional<SINK_ANS> read<SINK_ANS>(const PacketView&);
template <>
std::optional<CONFIG_REQ> read<CONFIG_REQ>(const PacketView&);
template <>
std::optional<CONFIG_ANS> read<CONFIG_ANS>(const PacketView&);
template <>
std::optional<HELLO_REQ> read<HELLO_REQ>(const PacketView&);
template <>
std::optional<HELLO_ANS> read<HELLO_ANS>(const PacketView&);
template <>
std::optional<NOTIFY> read<NOTIFY>(const PacketView&);
template <>
std::optional<TRANSFER_REQ> read<TRANSFER_REQ>(const PacketView&);
template <>
std::optional<TRANSFER_ANS> read<TRANSFER_ANS>(const PacketView&);
template <>
std::optional<TRANSFER_DATA> read<TRANSFER_DATA>(const PacketView&);
template <>
std::optional<TRANSFER_ACK> read<TRANSFER_ACK>(const PacketView&);
template <>
std::optional<TRANSFEREND_REQ> read<TRANSFEREND_REQ>(const PacketView&);
template <>
std::optional<TRANSFEREND_ANS> read<TRANSFEREND_ANS>(const PacketView&);
template <>
std::optional<INFOA_REQ> read<INFOA_REQ>(const PacketView&);
template <>
std::optional<INFOA_ANS> read<INFOA_ANS>(const PacketView&);
template <>
std::optional<INFOB_REQ> read<INFOB_REQ>(const PacketView&);
template <>
std::optional<INFOB_ANS> read<INFOB_ANS>(const PacketView&);
template <>
std::optional<VALUE_REQ> read<VALUE_REQ>(const PacketView&);
template <>
std::optional<VALUE_ANS> read<VALUE_ANS>(const PacketView&);
template <>
std::optional<INFOINDEX_REQ> read<INFOINDEX_REQ>(const PacketView&);
template <>
std::optional<INFOINDEX_ANS> read<INFOINDEX_ANS>(const PacketView&);
template <>
std::optional<ITEM_REQ> read<ITEM_REQ>(const PacketView&);
template <>
std::optional<ITEM_ANS> read<ITEM_ANS>(const PacketView&);
template <>
std::optional<ITEMVALUE_REQ> read<ITEMVALUE_REQ>(const PacketView&);
template <>
std::optional<ITEMVALUE_ANS> read<ITEMVALUE_ANS>(const PacketView&);

// The first "[myaddress]" of a configuration text becomes "[", the address's text without port,
// "]": a target does not know under which address it is seen. Any further one stays.
std::string replaceMyAddress(std::string text, const ZENNO::IPAddress& target);

}  // namespace VELMORA::wire
