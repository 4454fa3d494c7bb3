// The targets that a person is shown, over one search after the other: who came, who went, who is
// used always.
#pragma once

#include <string>
#include <vector>

#include "apps/velmora-settings/model/Document.h"
#include "driver/FinderCall.h"

namespace velmora_settings {

struct TargetRow {
    ZENNO::IPAddress key{};  // the sink's, with its interface
    VELMORA::FinderRecord record;
    bool isHere = true;  // it answered the last search

    std::string addressText() const;  // control address without its interface
    std::string interfaceText() const;
};

class TargetList {
public:
    enum class State { notYet, searching, done, failed };

    void onSearch() noexcept { state_ = State::searching; }
    // Who was here and does not answer stays, marked, until forgetGone().
    void onFound(const VELMORA::FinderMap& found);
    void onFailed() noexcept { state_ = State::failed; }
    void forgetGone();

    State state() const noexcept { return state_; }
    const std::vector<TargetRow>& rows() const noexcept { return rows_; }
    // One sentence on how things stand, with what helps.
    std::string statusText() const;

private:
    State state_ = State::notYet;
    std::vector<TargetRow> rows_;  // ascending by key
};

// The driver then plays to this target and searches no more.
void useAlways(Document& document, const TargetRow& row);
void useAny(Document& document);
bool isUsedAlways(const Document& document, const TargetRow& row);

// What a search asks: the field "Further addresses" as it stands, without what does not parse.
std::list<ZENNO::IPAddress> furtherAddresses(const Document& document);

}  // namespace velmora_settings
