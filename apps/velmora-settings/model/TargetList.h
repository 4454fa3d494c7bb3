// The targets that a person is shown, over one search after the other: who came, who went, who is
// used always.
#pragma once

#include <cstdint>
#include <list>
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

// What a search asks.
struct SearchQuestion {
    std::list<ZENNO::IPAddress> addresses{};  // by unicast besides
    std::uint32_t interfaceIndex = 0;         // 0: all of them

    friend bool operator==(const SearchQuestion&, const SearchQuestion&) = default;
};

class TargetList {
public:
    enum class State { notYet, searching, done, failed };

    // True for another question than the last: who does not answer it may be there as before, so
    // the list begins anew.
    bool onSearch(const SearchQuestion& question);
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
    SearchQuestion question_;
    std::vector<TargetRow> rows_;  // ascending by key
};

// The driver then plays to this target and searches no more.
void useAlways(Document& document, const TargetRow& row);
void useAny(Document& document);
bool isUsedAlways(const Document& document, const TargetRow& row);

// The field "Further addresses" as it stands, without what does not parse.
std::list<ZENNO::IPAddress> furtherAddresses(const Document& document);
SearchQuestion searchQuestion(const Document& document);

}  // namespace velmora_settings
