#include "target/Messages.h"

#include <algorithm>
#include <array>

#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

template <class M>
constexpr MessageName named(std::string_view name) {
    return {name, M::id, M::answer};
}

constexpr std::array table{
    named<FIND_REQ>("FIND_REQ"),
    named<SINK_REQ>("SINK_REQ"),
    named<SUPPORT_REQ>("SUPPORT_REQ"),
    named<LATENCY_REQ>("LATENCY_REQ"),
    named<CONNECT_REQ>("CONNECT_REQ"),
    MessageName{"STREAM_DATA", STREAM_DATA::id, INFO_ANS::id},
    named<DSICONNECT_REQ>("DSICONNECT_REQ"),
    named<DATASIZE_REQ>("DATASIZE_REQ"),
    named<CONFIG_REQ>("CONFIG_REQ"),
    named<CONNECTPRE_REQ>("CONNECTPRE_REQ"),
    named<PROFILE_REQ>("PROFILE_REQ"),
    named<HELLO_REQ>("HELLO_REQ"),
    named<CLIENT_REQ>("CLIENT_REQ"),
    named<TRANSFER_REQ>("TRANSFER_REQ"),
    named<TRANSFER_DATA>("TRANSFER_DATA"),
    MessageName{"TRANSFER_ACK", TRANSFER_DATA::id, TRANSFER_ACK::id},  // the same by another name
    named<TRANSFEREND_REQ>("TRANSFEREND_REQ"),
    named<INFOA_REQ>("INFOA_REQ"),
    named<INFOB_REQ>("INFOB_REQ"),
    named<VALUE_REQ>("VALUE_REQ"),
    named<LOG_REQ>("LOG_REQ"),
    named<NOPBREAK_REQ>("NOPBREAK_REQ"),
    named<INFOINDEX_REQ>("INFOINDEX_REQ"),
    named<ITEM_REQ>("ITEM_REQ"),
    named<ITEMVALUE_REQ>("ITEMVALUE_REQ"),
    MessageName{"NOTIFY", NOTIFY::id, NOTIFY::id},  // asked by nobody, but it can be silenced
};

}  // namespace

std::span<const MessageName> messages() noexcept {
    return table;
}

std::optional<MessageName> messageNamed(std::string_view name) noexcept {
    const auto found = std::find_if(table.begin(), table.end(),
                                    [name](const MessageName& m) { return m.name == name; });
    return found == table.end() ? std::nullopt : std::optional(*found);
}

std::optional<MessageName> messageOf(std::uint16_t id) noexcept {
    const auto found =
        std::find_if(table.begin(), table.end(), [id](const MessageName& m) { return m.id == id; });
    return found == table.end() ? std::nullopt : std::optional(*found);
}

}  // namespace velmora_target
