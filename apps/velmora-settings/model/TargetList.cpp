#include "apps/velmora-settings/model/TargetList.h"

#include <algorithm>
#include <map>

#include "apps/velmora-settings/model/Address.h"
#include "base/Number.h"
#include "base/Printable.h"

namespace velmora_settings {
namespace {

std::string sinks(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " sink" : " sinks");
}

constexpr const char* nobodyHelps =
    "is one switched on and in this network, and does the firewall let this program through? The "
    "page Diagnostics looks closer.";

}  // namespace

std::string TargetRow::addressText() const {
    return velmora_settings::addressText(record.findAddress);
}

std::string TargetRow::interfaceText() const {
    return std::to_string(key.scope);
}

bool TargetList::onSearch(const SearchQuestion& question) {
    state_ = State::searching;
    if (question == question_) return false;
    question_ = question;
    rows_.clear();
    return true;
}

void TargetList::onFound(const VELMORA::FinderMap& found) {
    state_ = State::done;
    std::map<ZENNO::IPAddress, TargetRow> merged;
    for (TargetRow& row : rows_) {
        row.isHere = false;
        merged[row.key] = row;
    }
    for (const auto& [key, record] : found) merged[key] = {key, record, true};
    rows_.clear();
    for (auto& [key, row] : merged) rows_.push_back(std::move(row));
}

void TargetList::forgetGone() {
    std::erase_if(rows_, [](const TargetRow& row) { return !row.isHere; });
}

std::string TargetList::statusText() const {
    const auto isHere = [](const TargetRow& row) { return row.isHere; };
    const auto here = static_cast<std::size_t>(std::count_if(rows_.begin(), rows_.end(), isHere));
    const auto gone = std::find_if_not(rows_.begin(), rows_.end(), isHere);
    switch (state_) {
        case State::notYet:
            return "Not searched yet.";
        case State::searching:
            return "Searching: " + sinks(here) + " so far.";
        case State::failed:
            return "The search could not run: is there a network with IPv6? Switch it on and "
                   "search again.";
        case State::done:
            break;
    }
    if (gone != rows_.end()) {
        return ZENNO::printable(gone->record.targetName) +
               " answers no more: is it switched on and connected? It can still be chosen.";
    }
    if (here == 0) return std::string("No target was found: ") + nobodyHelps;
    return sinks(here) + " found.";
}

void useAlways(Document& document, const TargetRow& row) {
    document.setText(FieldId::targetAddress, addressTextWithPort(row.record.findAddress));
    document.setText(FieldId::targetPO, std::to_string(row.record.sinkNo));
}

void useAny(Document& document) {
    document.setText(FieldId::targetAddress, "");
    document.setText(FieldId::targetPO, "0");
}

bool isUsedAlways(const Document& document, const TargetRow& row) {
    ZENNO::IPAddress chosen;
    return chosen.parseV6WithPort(document.text(FieldId::targetAddress)) &&
           chosen.address == row.record.findAddress.address &&
           document.text(FieldId::targetPO) == std::to_string(row.record.sinkNo);
}

std::list<ZENNO::IPAddress> furtherAddresses(const Document& document) {
    if (!refusal(FieldId::findIP, document.text(FieldId::findIP)).empty()) return {};
    ZENNO::InfFile tree;
    tree.set(fieldOf(FieldId::findIP).key, document.text(FieldId::findIP));
    tree.selectSection("global");
    return readSettings(tree, 0).values.findIPList;
}

SearchQuestion searchQuestion(const Document& document) {
    const std::int64_t number = ZENNO::readInteger(document.text(FieldId::networkInterface));
    return {furtherAddresses(document), static_cast<std::uint32_t>(number)};
}

}  // namespace velmora_settings
