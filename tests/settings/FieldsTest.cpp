#include "apps/velmora-settings/model/Fields.h"

#include <gtest/gtest.h>

#include <string>

#include "apps/velmora-settings/model/Reading.h"
#include "driver/Settings.h"

using namespace velmora_settings;

namespace {

// What the field shows when the driver has read `text` behind its key.
std::string shownFor(const Field& field, const std::string& text) {
    ZENNO::InfFile tree;
    tree.set(field.key, text);
    return fieldText(field.id, readSettings(tree, 4));
}

TEST(Fields, AreTheDriversKeysInItsOrder) {
    ASSERT_EQ(settingsKeys().size(), fields().size());
    for (std::size_t i = 0; i < fields().size(); ++i) {
        EXPECT_EQ(fields()[i].key, settingsKeys()[i].name);
        EXPECT_EQ(static_cast<std::size_t>(fields()[i].id), i);
        EXPECT_EQ(&fieldOf(fields()[i].id), &fields()[i]);
        EXPECT_FALSE(fields()[i].label.empty());
    }
}

TEST(Fields, FromTheCycleTimeOnFollowTheSectionLow) {
    for (const Field& field : fields()) {
        EXPECT_EQ(field.followsLow, field.id > FieldId::cpuLow) << field.key;
    }
}

TEST(Fields, SayTheirUnitAndRange) {
    struct Case {
        FieldId id;
        const char* text;
    };
    const Case cases[] = {
        {FieldId::cycleTime, "1 to 4294967295 µs"},
        {FieldId::cycleMinTime, "0 to 4294967295 µs"},
        {FieldId::syncBufferCount, "2 to 2147483647 buffers"},
        {FieldId::bufferSize, "1 to 2147483647 frames; 0: the software chooses"},
        {FieldId::profileLimit, "101 to 4294967295 µs; 0: the target is not asked"},
        {FieldId::targetPO, "0 to 65535"},
        {FieldId::fragment, "disable, enable, Optimize, or 0 to 65535 packets"},
        {FieldId::pcmRequest, "CovertS32, or 0 to 2147483647 bits"},
        {FieldId::debug, "enable, debug, or off"},
        {FieldId::phase, "Invert, or off"},
        {FieldId::targetAddress, "an IPv6 address, a comma and a port"},
        {FieldId::findIP, "IPv6 addresses with a semicolon between them"},
    };
    for (const Case& c : cases) EXPECT_EQ(rangeText(fieldOf(c.id)), c.text);
}

TEST(Fields, TakeEveryEndOfTheirRangeAndTheDriverDoesToo) {
    for (const Field& field : fields()) {
        if (field.kind != Field::Kind::number && field.kind != Field::Kind::numberOrOff) continue;
        SCOPED_TRACE(field.key);
        for (const std::int64_t number : {field.least, field.least + 1, field.most}) {
            const std::string text = std::to_string(number);
            EXPECT_EQ(refusal(field.id, text), "");
            EXPECT_EQ(fileValue(field.id, text), number == 0 && field.least > 0 ? "" : text);
            EXPECT_EQ(shownFor(field, text), text);
        }
    }
}

TEST(Fields, RefuseWhatTheDriverWouldIgnoreOrReadOtherwise) {
    struct Case {
        const char* why;
        FieldId id;
        const char* text;
    };
    const Case cases[] = {
        {"below the range", FieldId::syncBufferCount, "1"},
        {"0 where it is no value", FieldId::cycleTime, "0"},
        {"100 is not above 100", FieldId::profileLimit, "100"},
        {"beyond 31 bits", FieldId::bufferSizeMax, "2147483648"},
        {"beyond 32 bits, which would wrap", FieldId::cycleTime, "4294967296"},
        {"beyond 16 bits, which would wrap", FieldId::targetPO, "65536"},
        {"a count that would wrap", FieldId::fragment, "65537"},
        {"negative", FieldId::startDelay, "-1"},
        {"negative, which would become a large one", FieldId::cycleTime, "-5"},
        {"a unit behind it", FieldId::cycleTime, "100ms"},
        {"a point", FieldId::cycleTime, "1.5"},
        {"a sign", FieldId::cycleTime, "+5"},
        {"a blank", FieldId::cycleTime, "1 000"},
        {"no digits", FieldId::cycleTime, "fast"},
        {"nothing", FieldId::cycleTime, ""},
        {"beyond 64 bits", FieldId::cycleTime, "99999999999999999999"},
        {"the word in another case", FieldId::phase, "invert"},
        {"this word needs its capital letter", FieldId::nopBreak, "enable"},
        {"the right spelling of the wrong word", FieldId::pcmRequest, "ConvertS32"},
        {"a word of another key", FieldId::flexCycle, "Optimize"},
        {"an address without a port", FieldId::targetAddress, "fe80::1"},
        {"an address with a zone", FieldId::targetAddress, "fe80::1%3,19642"},
        {"a port that is none", FieldId::targetAddress, "fe80::1,70000"},
        {"no address at all", FieldId::targetAddress, "::,19642"},
        {"an address of the other family", FieldId::targetAddress, "10.0.0.1,19642"},
        {"an empty one among addresses", FieldId::findIP, "fe80::1;;fe80::2"},
        {"one that does not parse", FieldId::findIP, "fe80::1;here"},
        {"a blank between", FieldId::findIP, "fe80::1; fe80::2"},
        {"a separator at the end", FieldId::findIP, "fe80::1;"},
        {"a zone", FieldId::findIP, "fe80::1%eth0"},
        {"a tab", FieldId::findIP, "fe80::1\t"},
        {"a line end", FieldId::debug, "enable\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const std::string sentence = refusal(c.id, c.text);
        EXPECT_FALSE(sentence.empty());
        EXPECT_TRUE(sentence.ends_with('.')) << sentence;
        EXPECT_NE(sentence.find(fieldOf(c.id).label), std::string::npos) << sentence;
    }
}

TEST(Fields, TakeWhatTheDriverTakes) {
    struct Case {
        FieldId id;
        const char* text;
        const char* shown;
    };
    const Case cases[] = {
        {FieldId::pcmRequest, "CovertS32", "CovertS32"},
        {FieldId::pcmRequest, "24", "24"},
        {FieldId::fragment, "disable", "disable"},
        {FieldId::fragment, "enable", "enable"},
        {FieldId::fragment, "Optimize", "Optimize"},
        {FieldId::fragment, "7", "7"},
        {FieldId::fragment, "65535", "65535"},
        {FieldId::flexCycle, "enable", "enable"},
        {FieldId::flexCycle, "fixAsio", "fixAsio"},
        {FieldId::flexCycle, "random", "random"},
        {FieldId::debug, "debug", "debug"},
        {FieldId::dsdMsb, "enable", "enable"},
        {FieldId::phase, "Invert", "Invert"},
        {FieldId::nopBreak, "Enable", "Enable"},
        {FieldId::targetAddress, "fe80::1,19642", "fe80::1,19642"},
        {FieldId::findIP, "fe80::1;fe80::2", "fe80::1;fe80::2"},
        {FieldId::findIP, "", ""},
        {FieldId::targetAddress, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(refusal(c.id, c.text), "");
        EXPECT_EQ(shownFor(fieldOf(c.id), fileValue(c.id, c.text)), c.shown);
    }
}

}  // namespace
