// The target's settings as hosts see them: reads, writes, commits.
//
// A value that is written is held back until a commit (item 0) puts all of them into force at once;
// what nobody commits is forgotten. A commit that keeps hands what it puts into force to the state
// file, beside what is kept there already; what one puts into force that does not keep lasts until
// the target ends, or until it is written again and kept. Values that were never kept are the
// command line's at the next start. What a stream is made from (buffer, trim, feedback, phase,
// output) counts from the next stream on; the name at once.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "target/ItemTable.h"
#include "target/Mail.h"

namespace velmora_target {

using KeptValues = std::map<std::string, ItemValue>;  // by ItemRow::key

// Writes all of it to where it outlasts the target, or leaves what was there. A text that says why
// it could not; empty when it could.
using KeepValues = std::function<std::string(const KeptValues&)>;

class Items {
public:
    // Puts `kept` into force, but for what cannot be. Without `keep` nothing can be kept; it is
    // called when there is something to keep that is not kept yet.
    Items(TargetSettings& settings, const KeptValues& kept, KeepValues keep);

    // The answer to ITEM_REQ or ITEMVALUE_REQ; nothing for other messages.
    std::optional<ZENNO::Bytes> answer(const VELMORA::wire::PacketView& packet, std::uint64_t now,
                                       Mail& out);
    void onTime(std::uint64_t now);
    std::uint64_t nextTime() const noexcept { return forgetAt_; }

    // Whether commits have changed anything since the last call.
    bool takeChanged() noexcept { return std::exchange(changed_, false); }
    std::uint64_t changes() const noexcept { return changes_; }  // values, since the start
    // "Name is "x", kept": the values that came from `kept`.
    std::vector<std::string> keptLines() const;
    bool isKept(std::string_view key) const;  // and in force

    static constexpr std::uint64_t forgetAfter = 60'000'000;  // µs since the last write

private:
    struct Item {
        const ItemRow& row;
        ItemValue given, inForce;  // given by the command line
        std::optional<ItemValue> kept, written;
    };
    std::string objectionHere(const ItemRow& row, const ItemValue& value) const;
    ZENNO::Bytes describeItem(std::uint16_t itemNo) const;
    ZENNO::Bytes onItem(Item& item, const VELMORA::wire::PacketView& packet, std::uint64_t now,
                        Mail& out);
    bool commit(bool keep, Mail& out);
    std::string keepWritten() const;
    void forget() noexcept;

    TargetSettings& settings_;
    KeepValues keep_;
    std::vector<Item> items_;
    std::uint64_t forgetAt_ = ~0ull;
    bool changed_ = false;
    std::uint64_t changes_ = 0;
};

}  // namespace velmora_target
