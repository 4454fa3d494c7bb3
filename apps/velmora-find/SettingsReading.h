// A target's list of settings, and what is known where it breaks off.
#pragma once

#include <cstdint>
#include <string>

#include "apps/velmora-find/Target.h"
#include "find/SettingItem.h"

namespace velmora_find {

struct SettingsRead {
    VELMORA::SettingList items;  // as far as they go
    bool isWhole = false;
    // Where it is not: the AckResult of what was asked once more. Accepted: that was answered, so
    // an answer before was lost, refused or for another item.
    int result = VELMORA::ackAccepted;
    std::string why() const;  // where it breaks off and for what reason, a sentence
};

// Again after an answer that was lost, up to three times. `alternative` as Find::getItems has it.
SettingsRead readSettings(Asking& asking, const ZENNO::IPAddress& target, bool alternative);

}  // namespace velmora_find
