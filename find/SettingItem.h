// One of a target's own settings, as a dialog shows it.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace VELMORA {

enum SettingKind : std::int32_t {
    settingUnknown = 0,
    settingText = 1,
    settingNumber = 2,
    settingSwitch = 3,
    settingChoice = 4,
    settingChoiceText = 5,  // one of the choices, or a text
};

struct SettingItem {
    std::int32_t kind = settingUnknown;
    std::string label;
    std::string value;                 // of a text, and of a choice with text
    std::vector<std::string> choices;  // the labels of the values from lower to upper
    std::int32_t current = 0;
    std::int32_t lower = 0;
    std::int32_t upper = 0;
    std::int32_t second = 0;  // of a choice with text: an index into choices
};

using SettingList = std::list<SettingItem>;

// A target's list may lie: past these bounds reading it fails. No real list comes near them.
constexpr std::uint32_t settingsLimit = 120'000'000;  // µs for one list
constexpr std::size_t mostChoices = 65536;            // of all items together

}  // namespace VELMORA
