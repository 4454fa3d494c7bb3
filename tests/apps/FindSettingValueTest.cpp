// How a value that somebody typed becomes one that is sent, or a sentence.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/velmora-find/SettingValue.h"

namespace {

using testing::HasSubstr;
using VELMORA::SettingItem;
using velmora_find::SettingChange;

SettingItem itemOf(std::int32_t kind, std::int32_t lower = 0, std::int32_t upper = 0,
                   std::vector<std::string> choices = {}) {
    SettingItem item;
    item.kind = kind;
    item.label = "Thing";
    item.lower = lower;
    item.upper = upper;
    item.choices = std::move(choices);
    return item;
}
const SettingItem text = itemOf(VELMORA::settingText);
const SettingItem number = itemOf(VELMORA::settingNumber, -5, 300);
const SettingItem large = itemOf(VELMORA::settingNumber, 0, 65535);
const SettingItem nothing = itemOf(VELMORA::settingNumber, 5, 4);
const SettingItem plain = itemOf(VELMORA::settingSwitch, 0, 1, {"disable", "enable"});
const SettingItem perverse = itemOf(VELMORA::settingSwitch, 0, 1, {"on", "1"});
const SettingItem choice = itemOf(VELMORA::settingChoice, 1, 3, {"one", "3", "same"});
const SettingItem twins = itemOf(VELMORA::settingChoice, 0, 1, {"same", "same"});
const SettingItem withText =
    itemOf(VELMORA::settingChoiceText, 0, 3, {"none", "file", "a:b", "c\x1b"});
const SettingItem unknown = itemOf(VELMORA::settingUnknown);

struct ValueCase {
    const char* why;
    const SettingItem& item;
    const char* typed;
    bool taken;
    std::int32_t value;
    const char* text;
};
const ValueCase valueCases[] = {
    {"a text is any", text, "anything: \x1b", true, 0, "anything: \x1b"},
    {"the empty text too", text, "", true, 0, ""},
    {"a number within", number, "300", true, 300, ""},
    {"the lowest", number, "-5", true, -5, ""},
    {"above", number, "301", false, 0, ""},
    {"below", number, "-6", false, 0, ""},
    {"no number", number, "ten", false, 0, ""},
    {"a number with a tail", number, "10 ms", false, 0, ""},
    {"no digits", number, "", false, 0, ""},
    {"beyond any type", number, "99999999999999999999", false, 0, ""},
    {"one that a word just holds", large, "65535", true, 65535, ""},
    {"one that wraps in a word", large, "65536", false, 0, ""},
    {"an empty range takes nothing", nothing, "5", false, 0, ""},
    {"on", plain, "on", true, 1, ""},
    {"off", plain, "off", true, 0, ""},
    {"enable", plain, "enable", true, 1, ""},
    {"disable", plain, "disable", true, 0, ""},
    {"a switch by number", plain, "1", true, 1, ""},
    {"a switch has two numbers", plain, "2", false, 0, ""},
    {"no word of a switch", plain, "yes", false, 0, ""},
    {"the target's label goes before the usual word", perverse, "on", true, 0, ""},
    {"and before the number", perverse, "1", true, 1, ""},
    {"the usual word where no label is it", perverse, "off", true, 0, ""},
    {"a choice by label", choice, "one", true, 1, ""},
    {"by number", choice, "1", true, 1, ""},
    {"by label before number", choice, "3", true, 2, ""},
    {"a number outside", choice, "0", false, 0, ""},
    {"a label that two have", twins, "same", false, 0, ""},
    {"by number where the label does not tell", twins, "1", true, 1, ""},
    {"a choice with text, without text", withText, "file", true, 1, ""},
    {"with text", withText, "file:a.wav", true, 1, "a.wav"},
    {"a colon in the text", withText, "file:a:b", true, 1, "a:b"},
    {"a colon in the label", withText, "a:b", true, 2, ""},
    {"both", withText, "a:b:c", true, 2, "c"},
    {"by number, with text", withText, "1:x", true, 1, "x"},
    {"a label as it is shown", withText, "c\\x1b", true, 3, ""},
    {"no choice before the colon", withText, "x:y", false, 0, ""},
    {"an unknown kind takes nothing", unknown, "1", false, 0, ""},
};

TEST(FindSettingValue, IsCheckedAgainstKindAndRange) {
    for (const ValueCase& c : valueCases) {
        SCOPED_TRACE(c.why);
        const auto result = velmora_find::readValue(c.item, c.typed, std::nullopt);
        const auto* change = std::get_if<SettingChange>(&result);
        ASSERT_EQ(change != nullptr, c.taken);
        if (change == nullptr) {
            EXPECT_THAT(std::get<std::string>(result), HasSubstr("Allowed: "));
            continue;
        }
        EXPECT_EQ(change->number, c.value);
        EXPECT_EQ(change->value, static_cast<std::uint16_t>(c.value));
        EXPECT_EQ(change->text, c.text);
    }
}

TEST(FindSettingValue, SaysWhatIsAllowed) {
    EXPECT_EQ(velmora_find::allowedText(number), "-5 to 300");
    EXPECT_EQ(velmora_find::allowedText(nothing), "nothing: the target tells an empty range");
    EXPECT_EQ(velmora_find::allowedText(choice), "1 = one; 2 = 3; 3 = same");
    EXPECT_EQ(velmora_find::allowedText(withText),
              "0 = none; 1 = file; 2 = a:b; 3 = c\\x1b; each alone or as CHOICE:TEXT");
}

TEST(FindSettingValue, TakesATextOfItsOwnForAChoiceWithTextAlone) {
    const auto result = velmora_find::readValue(withText, "a:b", "x:y");
    EXPECT_EQ(std::get<SettingChange>(result).value, 2);
    EXPECT_EQ(std::get<SettingChange>(result).text, "x:y");
    EXPECT_TRUE(
        std::holds_alternative<std::string>(velmora_find::readValue(withText, "file:z", "x")));
    EXPECT_THAT(std::get<std::string>(velmora_find::readValue(number, "1", "x")),
                HasSubstr("choice with text alone"));
}

TEST(FindSettingValue, BoundsATextByWhatCanBeReadBack) {
    const std::size_t most = velmora_find::longestSettingText;
    EXPECT_TRUE(std::holds_alternative<SettingChange>(
        velmora_find::readValue(text, std::string(most, 'x'), std::nullopt)));
    EXPECT_THAT(std::get<std::string>(
                    velmora_find::readValue(text, std::string(most + 1, 'x'), std::nullopt)),
                HasSubstr("1484 bytes"));
}

TEST(FindSettingValue, IsShownAsTheTargetNamesIt) {
    SettingItem item = choice;
    item.current = 2;
    EXPECT_EQ(velmora_find::valueText(item), "3");
    item.current = 9;
    EXPECT_EQ(velmora_find::valueText(item), "9 (outside its range)");
    item = withText;
    item.current = 1;
    item.value = "a.wav";
    EXPECT_EQ(velmora_find::valueText(item), "file: a.wav");
    item.value = "file";
    EXPECT_EQ(velmora_find::valueText(item), "file");
    item.current = -2147483647 - 1;
    EXPECT_EQ(velmora_find::valueText(item), "-2147483648 (outside its range): file");
    EXPECT_EQ(velmora_find::valueText(text), "(empty)");
}

}  // namespace
