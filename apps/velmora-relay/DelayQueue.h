// Frames on their way: each comes out when its time has come, those of one time in the order in
// which they went in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "base/BufferCS.h"

namespace velmora_relay {

class DelayQueue {
public:
    static constexpr std::size_t most = 50'000;  // frames; no link holds more

    struct Item {
        int side = 0;  // where it leaves
        ZENNO::Bytes frame;
    };

    // False, and the frame is gone, when it is full.
    bool push(std::uint64_t due, Item item) {
        if (items_.size() >= most) return false;
        items_.emplace(due, std::move(item));
        return true;
    }
    // The next that is due; nothing while there is none.
    std::optional<Item> pop(std::uint64_t now) {
        const auto first = items_.begin();
        if (first == items_.end() || first->first > now) return std::nullopt;
        Item item = std::move(first->second);
        items_.erase(first);
        return item;
    }
    std::uint64_t nextDue() const noexcept {  // ~0: never
        return items_.empty() ? ~0ull : items_.begin()->first;
    }
    std::size_t size() const noexcept { return items_.size(); }

private:
    std::multimap<std::uint64_t, Item> items_;
};

}  // namespace velmora_relay
