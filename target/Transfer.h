// One transfer to one channel: puts its packets in order and hands them on.
//
// A packet's place in the whole follows from its block and its place there, and its number has to
// agree; what does not is no packet of this transfer. The first copy of a packet is the one that
// counts: a short last packet that a host sends again has lost its tail.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "base/IPAddress.h"
#include "target/Inbox.h"
#include "target/Settings.h"
#include "wire/Crc16.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

class Transfer {
public:
    Transfer(const ChannelSettings& channel, const ZENNO::IPAddress& host, std::uint64_t now,
             std::unique_ptr<InboxItem> item)
        : channel_(channel), host_(host), begun_(now), heard_(now), item_(std::move(item)) {}

    enum class Taken {
        sound,    // this one or an earlier copy is kept, or there will be another
        beyond,   // more than the channel holds
        foreign,  // no packet of this transfer
    };
    Taken onData(const VELMORA::wire::TRANSFER_DATA& packet, VELMORA::wire::ConstBytes data,
                 std::uint64_t now);

    // The last packet of the unbroken run from the start; 0 while there is none.
    std::uint16_t reached() const noexcept {
        return static_cast<std::uint16_t>(next_ == 0 ? 0 : next_ - 1);
    }
    bool isUnbroken() const noexcept { return held_.empty(); }
    std::string finish() { return item_->finish(); }

    const ZENNO::IPAddress& host() const noexcept { return host_; }
    const std::string& failure() const noexcept { return failure_; }  // of writing; empty: none
    std::uint16_t crc() const noexcept { return crc_.value(); }
    std::uint64_t bytes() const noexcept { return bytes_; }
    std::uint64_t duplicates() const noexcept { return duplicates_; }
    std::uint64_t begun() const noexcept { return begun_; }
    std::uint64_t heard() const noexcept { return heard_; }
    std::string where() const { return item_->where(); }

    static constexpr std::uint64_t mostAhead = 1024;  // packets kept beyond a hole

private:
    void append(VELMORA::wire::ConstBytes data);

    ChannelSettings channel_;
    ZENNO::IPAddress host_;
    std::uint64_t begun_, heard_;
    std::unique_ptr<InboxItem> item_;
    std::uint64_t next_ = 0;  // the first packet that is missing, counted without a wrap
    std::map<std::uint64_t, ZENNO::Bytes> held_;
    bool hasShort_ = false;  // only the last packet is shorter than the others
    VELMORA::wire::Crc16 crc_;
    std::uint64_t bytes_ = 0, duplicates_ = 0;
    std::string failure_;
};

}  // namespace velmora_target
