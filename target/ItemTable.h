// The settings of a target that hosts can see and change: what each is called, which values it
// takes, and what it does. Everything else walks these rows.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "target/Settings.h"

namespace velmora_target {

// Both forms of a value; which of them counts is the type's matter.
struct ItemValue {
    std::uint16_t number = 0;  // i16 for signedNumber
    std::string text;
    bool operator==(const ItemValue&) const = default;
};

enum class ItemType : std::uint16_t {
    number = 1,
    signedNumber = 2,
    flag = 3,
    text = 4,
    choice = 5,
    choiceWithText = 6,
};

struct ItemRow {
    const char* key;  // in the state file
    const char* label;
    ItemType type;
    std::int32_t lower, upper;             // of `number`
    std::span<const char* const> choices;  // labels from `lower` on; none: hosts have their own
    const char* unit;                      // of a number
    std::size_t longestText;               // bytes
    ItemValue (*read)(const TargetSettings&);
    void (*apply)(TargetSettings&, const ItemValue&);

    bool hasText() const noexcept {
        return type == ItemType::text || type == ItemType::choiceWithText;
    }
    std::int32_t valueOf(std::uint16_t word) const noexcept {
        return type == ItemType::signedNumber ? static_cast<std::int16_t>(word) : word;
    }
    bool holds(std::int32_t value) const noexcept { return value >= lower && value <= upper; }
    std::string bounds() const;  // "from 0 to 60000"
    // "20 ms", "WAV file", "": empty where hosts have a word of their own.
    std::string labelOf(std::uint16_t word) const;
};

// Item 1 first.
std::span<const ItemRow> itemTable() noexcept;

// Why the value cannot be set; empty if it can.
std::string objectionTo(const ItemRow& row, const ItemValue& value);
// As an event says it: "Name", quoted texts, units.
std::string describe(const ItemRow& row, const ItemValue& value);

}  // namespace velmora_target
