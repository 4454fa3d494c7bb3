// Where whole transfers go. What is not finished leaves nothing behind.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "wire/Packet.h"

namespace velmora_target {

// One transfer's bytes. The texts say what failed; empty when nothing did.
class InboxItem {
public:
    virtual ~InboxItem() = default;  // discards what was not finished
    virtual std::string append(VELMORA::wire::ConstBytes data) = 0;
    virtual std::string finish() = 0;  // nothing more comes; it gets its name
    virtual void discard() = 0;
    virtual std::string where() const = 0;  // the name, once finished
};

// Called once a transfer, with the channel's number from 0. Touches nothing yet: a host may only
// have wanted to know how the channel is made.
using MakeInboxItem = std::function<std::unique_ptr<InboxItem>(std::uint16_t channel)>;

}  // namespace velmora_target
