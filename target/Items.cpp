#include "target/Items.h"

#include <algorithm>
#include <utility>

#include "target/Discovery.h"
#include "target/OutputChoice.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

Items::Items(TargetSettings& settings, const KeptValues& kept, KeepValues keep)
    : settings_(settings), keep_(std::move(keep)) {
    for (const ItemRow& row : itemTable()) {
        Item item{row, row.read(settings), row.read(settings), {}, {}};
        const auto found = kept.find(row.key);
        if (found != kept.end() && objectionHere(row, found->second).empty()) {
            item.inForce = found->second;
            item.kept = found->second;
            row.apply(settings, item.inForce);
        }
        items_.push_back(std::move(item));
    }
}

std::vector<std::string> Items::keptLines() const {
    std::vector<std::string> lines;
    for (const Item& item : items_) {
        if (!item.kept) continue;
        lines.push_back(std::string(item.row.label) + " is " + describe(item.row, *item.kept) +
                        ", kept");
    }
    return lines;
}

bool Items::isKept(std::string_view key) const {
    return std::any_of(items_.begin(), items_.end(), [key](const Item& item) {
        return key == item.row.key && item.kept && *item.kept == item.inForce;
    });
}

// Why this target does not take a value; empty if it does.
std::string Items::objectionHere(const ItemRow& row, const ItemValue& value) const {
    std::string objection = objectionTo(row, value);
    if (objection.empty() && row.type == ItemType::choiceWithText &&
        settings_.outputFolder.empty() && isFile({value.number, value.text})) {
        objection = "hosts name no files here, for there is no --output-folder";
    }
    return objection;
}

std::optional<ZENNO::Bytes> Items::answer(const PacketView& packet, std::uint64_t now, Mail& out) {
    onTime(now);
    const std::uint16_t itemNo = packet.arg16(8);
    if (packet.id() == ITEM_REQ::id) return describeItem(itemNo);
    if (packet.id() != ITEMVALUE_REQ::id) return std::nullopt;
    if (itemNo > items_.size()) return refusal(ITEMVALUE_ANS::id);
    if (itemNo != 0) return onItem(items_[itemNo - 1u], packet, now, out);

    const std::uint16_t mode = packet.arg16(10);
    const bool keeps = mode == ITEMVALUE_REQ::modeWrite;
    const bool commits = keeps || mode == ITEMVALUE_REQ::modeAlternative;
    return commits && commit(keeps, out) ? write(ITEMVALUE_ANS{}) : refusal(ITEMVALUE_ANS::id);
}

ZENNO::Bytes Items::describeItem(std::uint16_t itemNo) const {
    if (itemNo > items_.size()) return refusal(ITEM_ANS::id);
    ITEM_ANS answer;
    if (itemNo == 0) {
        answer.itemNo = static_cast<std::uint16_t>(items_.size());
        return write(answer);
    }
    const ItemRow& row = items_[itemNo - 1u].row;
    answer.itemNo = itemNo;
    answer.type = static_cast<std::uint16_t>(row.type);
    answer.lower = static_cast<std::uint16_t>(row.lower);
    answer.upper = static_cast<std::uint16_t>(row.upper);
    answer.label = row.label;
    return write(answer);
}

ZENNO::Bytes Items::onItem(Item& item, const PacketView& packet, std::uint64_t now, Mail& out) {
    const ItemRow& row = item.row;
    ItemValue value = item.inForce;
    switch (packet.arg16(10)) {
        case ITEMVALUE_REQ::modeRead:
            value = item.written.value_or(item.inForce);
            break;
        case ITEMVALUE_REQ::modeAlternative:
            value = item.kept.value_or(item.given);
            break;
        case ITEMVALUE_REQ::modeWrite: {
            value = {row.type == ItemType::text ? std::uint16_t{0} : packet.arg16(12),
                     row.hasText() ? std::string(packet.text()) : std::string()};
            const std::string objection = objectionHere(row, value);
            // What is there already may stay where it is the command line's alone to give; but it
            // is not the host's then, and is not kept.
            if (!objection.empty() && value == item.inForce) {
                item.written.reset();
                break;
            }
            if (!objection.empty()) {
                out.lines.push_back("refused a value for " + std::string(row.label) + ": " +
                                    objection);
                return refusal(ITEMVALUE_ANS::id);
            }
            item.written = value;
            forgetAt_ = now + forgetAfter;
            break;
        }
        case ITEMVALUE_REQ::modeLabel:
            if (!row.holds(row.valueOf(packet.arg16(12)))) return refusal(ITEMVALUE_ANS::id);
            value = {packet.arg16(12), row.labelOf(packet.arg16(12))};
            break;
        default:
            return refusal(ITEMVALUE_ANS::id);
    }
    ITEMVALUE_ANS answer;
    answer.itemNo = packet.arg16(8);
    answer.current = value.number;
    if (row.type == ItemType::choiceWithText) {
        answer.second = static_cast<std::uint16_t>(row.valueOf(value.number) - row.lower);
    }
    answer.text = value.text;
    return write(answer);
}

// Keeping comes first: a commit that cannot be kept is refused and changes nothing, so that its
// host may mend the cause and commit again, or commit without keeping. What it wrote is still
// there.
bool Items::commit(bool keep, Mail& out) {
    if (keep) {
        const std::string failure = keepWritten();
        if (!failure.empty()) {
            out.lines.push_back("settings are not kept: " + failure);
            return false;
        }
    }
    for (Item& item : items_) {
        if (!item.written) continue;
        if (keep) item.kept = item.written;
        if (*item.written == item.inForce) continue;
        item.inForce = *item.written;
        item.row.apply(settings_, item.inForce);
        out.lines.push_back(std::string(item.row.label) + " is now " +
                            describe(item.row, item.inForce) + (keep ? ", kept" : ""));
        ++changes_;
        changed_ = true;
    }
    forget();
    return true;
}

// Why what is written cannot be kept; empty if it can, or is kept already.
std::string Items::keepWritten() const {
    if (!keep_) return "there is no state file";
    KeptValues values;
    bool isNew = false;
    for (const Item& item : items_) {
        const std::optional<ItemValue>& value = item.written ? item.written : item.kept;
        if (value) values[item.row.key] = *value;
        isNew |= value != item.kept;
    }
    return isNew ? keep_(values) : std::string();
}

void Items::onTime(std::uint64_t now) {
    if (now >= forgetAt_) forget();
}

void Items::forget() noexcept {
    for (Item& item : items_) item.written.reset();
    forgetAt_ = ~0ull;
}

}  // namespace velmora_target
