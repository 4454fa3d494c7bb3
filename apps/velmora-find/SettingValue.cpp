#include "apps/velmora-find/SettingValue.h"

#include <charconv>
#include <vector>

#include "apps/velmora-find/Printable.h"

namespace velmora_find {
namespace {

using VELMORA::SettingItem;

constexpr const char* kinds[] = {"unknown", "text",   "number",
                                 "switch",  "choice", "choice with text"};

struct SwitchWord {
    const char* word;
    std::int32_t value;
};
constexpr SwitchWord switchWords[] = {{"off", 0}, {"on", 1}, {"disable", 0}, {"enable", 1}};

std::optional<std::int32_t> readInteger(const std::string& text) {
    std::int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole && !text.empty() ? std::optional(value) : std::nullopt;
}

bool isWithin(const SettingItem& item, std::int32_t value) {
    return value >= item.lower && value <= item.upper;
}

const std::string* labelOf(const SettingItem& item, std::int32_t value) {
    const std::int64_t at = std::int64_t{value} - item.lower;
    if (at < 0 || at >= static_cast<std::int64_t>(item.choices.size())) return nullptr;
    return &item.choices[static_cast<std::size_t>(at)];
}

// A label that several choices have is no answer to which one is meant.
std::optional<std::int32_t> choiceNamed(const SettingItem& item, const std::string& typed) {
    std::vector<std::int32_t> meant;
    for (std::size_t i = 0; i < item.choices.size(); ++i) {
        if (item.choices[i] == typed || printable(item.choices[i]) == typed) {
            meant.push_back(item.lower + static_cast<std::int32_t>(i));
        }
    }
    if (!meant.empty()) return meant.size() == 1 ? std::optional(meant.front()) : std::nullopt;
    if (item.kind == VELMORA::settingSwitch) {
        for (const SwitchWord& word : switchWords) {
            if (typed == word.word) return word.value;
        }
    }
    const auto number = readInteger(typed);
    return number && isWithin(item, *number) ? number : std::nullopt;
}

SettingChange numbered(std::int32_t value, std::string text = {}) {
    return {static_cast<std::uint16_t>(value), std::move(text), value};
}

// The whole word first: a label may hold a colon of its own.
std::optional<SettingChange> choiceWithText(const SettingItem& item, const std::string& typed,
                                            const std::optional<std::string>& text) {
    if (const auto value = choiceNamed(item, typed)) return numbered(*value, text.value_or(""));
    if (text) return std::nullopt;
    for (auto colon = typed.find(':'); colon != std::string::npos;
         colon = typed.find(':', colon + 1)) {
        const auto value = choiceNamed(item, typed.substr(0, colon));
        if (value) return numbered(*value, typed.substr(colon + 1));
    }
    return std::nullopt;
}

std::optional<SettingChange> valueOf(const SettingItem& item, const std::string& typed,
                                     const std::optional<std::string>& text) {
    switch (item.kind) {
        case VELMORA::settingText:
            return SettingChange{0, typed, 0};
        case VELMORA::settingNumber: {
            const auto number = readInteger(typed);
            if (!number || !isWithin(item, *number)) return std::nullopt;
            return numbered(*number);
        }
        case VELMORA::settingSwitch:
        case VELMORA::settingChoice: {
            const auto value = choiceNamed(item, typed);
            return value ? std::optional(numbered(*value)) : std::nullopt;
        }
        case VELMORA::settingChoiceText:
            return choiceWithText(item, typed, text);
        default:
            return std::nullopt;
    }
}

}  // namespace

const char* kindName(std::int32_t kind) {
    const bool isKnown = kind > 0 && static_cast<std::size_t>(kind) < std::size(kinds);
    return kinds[isKnown ? kind : 0];
}

std::string valueText(const SettingItem& item) {
    if (item.kind == VELMORA::settingText) {
        return item.value.empty() ? "(empty)" : printable(item.value);
    }
    std::string text = std::to_string(item.current);
    if (item.kind != VELMORA::settingNumber && item.kind != VELMORA::settingUnknown) {
        const std::string* label = labelOf(item, item.current);
        text = label != nullptr ? printable(*label) : text + " (outside its range)";
        const bool hasText = item.kind == VELMORA::settingChoiceText && !item.value.empty();
        if (hasText && (label == nullptr || *label != item.value)) {
            text += ": " + printable(item.value);
        }
    }
    return text;
}

std::string allowedText(const SettingItem& item) {
    if (item.kind == VELMORA::settingText) return "any text";
    if (item.kind == VELMORA::settingUnknown) return "nothing that this program knows";
    if (item.lower > item.upper) return "nothing: the target tells an empty range";
    if (item.kind == VELMORA::settingNumber) {
        return std::to_string(item.lower) + " to " + std::to_string(item.upper);
    }
    std::string text;
    for (std::size_t i = 0; i < item.choices.size(); ++i) {
        const auto value = static_cast<std::int32_t>(i) + item.lower;
        text += (i == 0 ? "" : "; ") + std::to_string(value) + " = " + printable(item.choices[i]);
    }
    if (item.kind == VELMORA::settingChoiceText) text += "; each alone or as CHOICE:TEXT";
    return text;
}

std::variant<SettingChange, std::string> readValue(const SettingItem& item,
                                                   const std::string& typed,
                                                   const std::optional<std::string>& text) {
    const std::string name = "\"" + printable(item.label) + "\"";
    if (text && item.kind != VELMORA::settingChoiceText) {
        return "--text goes with a choice with text alone, and " + name + " is a " +
               kindName(item.kind) + ".";
    }
    const auto change = valueOf(item, typed, text);
    if (!change) {
        return "\"" + printable(typed) + "\" is nothing that " + name +
               " takes. Allowed: " + allowedText(item) + ".";
    }
    if (change->text.size() > longestSettingText) {
        return "The text is too long: at most " + std::to_string(longestSettingText) +
               " bytes fit.";
    }
    return *change;
}

bool holds(const SettingItem& item, const SettingChange& change) {
    if (item.kind == VELMORA::settingText) return item.value == change.text;
    return item.current == change.number && (change.text.empty() || item.value == change.text);
}

}  // namespace velmora_find
