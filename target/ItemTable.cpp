#include "target/ItemTable.h"

#include <algorithm>
#include <cmath>

#include "target/OutputChoice.h"
#include "target/Text.h"

namespace velmora_target {

namespace {

constexpr std::uint16_t zero = 0, one = 1;
constexpr std::int32_t longestBuffer = 60000, mostPpm = 1000;

// What the command line gives may lie outside what hosts can set, or between two steps. It is shown
// as the nearest value then, and stays as it is until a host sets another.
std::uint16_t nearest(double value, std::int32_t lower, std::int32_t upper) {
    const long rounded = std::lround(std::clamp<double>(value, lower, upper));
    return static_cast<std::uint16_t>(rounded);
}

ItemValue bufferOf(const TargetSettings& settings) {
    if (!settings.bufferMicros) return {};
    return {nearest(static_cast<double>(*settings.bufferMicros) / 1000, 1, longestBuffer), {}};
}

ItemValue outputOf(const TargetSettings& settings) {
    OutputChoice choice = outputChoice(settings.output);
    return {choice.kind, std::move(choice.name)};
}

constexpr const char* encodings[] = {"one word, in steps of 2", "one word, in full",
                                     "fill and its target"};
constexpr const char* offOn[] = {"off", "on"};

const ItemRow table[] = {
    {"name",
     "Name",
     ItemType::text,
     0,
     0,
     {},
     "",
     64,
     [](const TargetSettings& s) {
         return ItemValue{0, s.name};
     },
     [](TargetSettings& s, const ItemValue& v) { s.name = v.text; }},
    {"buffer",
     "Buffer length",
     ItemType::number,
     0,
     longestBuffer,
     {},
     "ms",
     0,
     bufferOf,
     [](TargetSettings& s, const ItemValue& v) {
         s.bufferMicros = v.number == 0 ? std::nullopt : std::optional(v.number * 1000ull);
     }},
    {"clockTrim",
     "Clock trim",
     ItemType::signedNumber,
     -mostPpm,
     mostPpm,
     {},
     "ppm",
     0,
     [](const TargetSettings& s) {
         return ItemValue{nearest(s.clockPpm, -mostPpm, mostPpm), {}};
     },
     [](TargetSettings& s, const ItemValue& v) {
         s.clockPpm = static_cast<std::int16_t>(v.number);
     }},
    {"feedback", "Feedback encoding", ItemType::choice, 1, 3, encodings, "", 0,
     [](const TargetSettings& s) {
         return ItemValue{static_cast<std::uint16_t>(s.feedbackEncoding), {}};
     },
     [](TargetSettings& s, const ItemValue& v) { s.feedbackEncoding = v.number; }},
    {"phaseInversion",
     "Phase inversion",
     ItemType::flag,
     0,
     1,
     {},
     "",
     0,
     [](const TargetSettings& s) {
         return ItemValue{s.phaseInvert ? one : zero, {}};
     },
     [](TargetSettings& s, const ItemValue& v) { s.phaseInvert = v.number != 0; }},
    {"announce", "Announce changes", ItemType::flag, 0, 1, offOn, "", 0,
     [](const TargetSettings& s) {
         return ItemValue{s.announces ? one : zero, {}};
     },
     [](TargetSettings& s, const ItemValue& v) { s.announces = v.number != 0; }},
    {"output", "Output", ItemType::choiceWithText, 0, outputLabels.size() - 1, outputLabels, "",
     128, outputOf,
     [](TargetSettings& s, const ItemValue& v) {
         s.output = outputText({v.number, v.text}, s.outputFolder);
     }},
};

std::string quoted(const std::string& text) {
    return '"' + shownText(text) + '"';
}

}  // namespace

std::span<const ItemRow> itemTable() noexcept {
    return table;
}

std::string ItemRow::bounds() const {
    return "from " + std::to_string(lower) + " to " + std::to_string(upper);
}

std::string ItemRow::labelOf(std::uint16_t word) const {
    if (!choices.empty()) return choices[static_cast<std::size_t>(valueOf(word) - lower)];
    return *unit == 0 ? std::string() : std::to_string(valueOf(word)) + ' ' + unit;
}

std::string objectionTo(const ItemRow& row, const ItemValue& value) {
    if (row.type != ItemType::text && !row.holds(row.valueOf(value.number))) {
        return "not " + row.bounds();
    }
    if (!row.hasText()) return {};
    if (value.text.size() > row.longestText) {
        return "more than " + std::to_string(row.longestText) + " bytes";
    }
    if (!isPlainText(value.text)) return "no UTF-8, or control characters";
    if (row.type == ItemType::choiceWithText) return objectionTo({value.number, value.text});
    return value.text.empty() ? "empty" : std::string();
}

std::string describe(const ItemRow& row, const ItemValue& value) {
    if (row.type == ItemType::text) return quoted(value.text);
    std::string text = row.labelOf(value.number);
    if (text.empty()) text = value.number != 0 ? "on" : "off";
    return value.text.empty() ? text : text + ' ' + quoted(value.text);
}

}  // namespace velmora_target
