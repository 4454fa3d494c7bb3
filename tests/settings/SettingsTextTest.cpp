#include "apps/velmora-settings/model/SettingsText.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "base/InfFile.h"

using namespace velmora_settings;

namespace {

TEST(SettingsText, ChangesOneValueAndNoOtherByte) {
    struct Case {
        const char* why;
        std::string before, section, key, value, after;
    };
    const Case cases[] = {
        {"comments and order stay", "; mine\r\nB=1\r\nA=2\r\n", "global", "A", "3",
         "; mine\r\nB=1\r\nA=3\r\n"},
        {"blanks around the sign stay", "  A  =  2  \nB=1", "global", "A", "3", "  A  =  3\nB=1"},
        {"the last of two holds", "A=1\nA=2\n", "global", "A", "3", "A=1\nA=3\n"},
        {"another section's key is another key", "[LOW]\nA=1\n", "global", "A", "3",
         "A=3\n[LOW]\nA=1\n"},
        {"a comment is no key", ";A=1\n#A=1\n//A=1\n", "global", "A", "3",
         ";A=1\n#A=1\n//A=1\nA=3\n"},
        {"behind the last key of its section", "A=1\n\n[LOW]\nX=1\n", "global", "B", "2",
         "A=1\nB=2\n\n[LOW]\nX=1\n"},
        {"in a section of its own", "A=1\r\n", "LOW", "X", "2", "A=1\r\n[LOW]\r\nX=2\r\n"},
        {"a last line without an end", "A=1", "global", "B", "2", "A=1\r\nB=2\r\n"},
        {"an empty file", "", "global", "A", "1", "A=1\r\n"},
        {"an empty file with a mark", "\xef\xbb\xbf", "global", "A", "1",
         "\xef\xbb\xbf"
         "A=1\r\n"},
        {"behind a mark",
         "\xef\xbb\xbf"
         "A=1\n",
         "global", "A", "2",
         "\xef\xbb\xbf"
         "A=2\n"},
        {"CR alone ends lines", "A=1\rB=2\r", "global", "A", "7", "A=7\rB=2\r"},
        {"an empty section name is global", "[X]\nA=1\n[]\nB=1\n", "global", "B", "2",
         "[X]\nA=1\n[]\nB=2\n"},
        {"a broken head changes nothing", "[LOW\nA=1\n", "global", "A", "2", "[LOW\nA=2\n"},
        {"blanks in a head", "[ LOW ]  \nA=1\n", "LOW", "A", "2", "[ LOW ]  \nA=2\n"},
        {"a value with further signs", "A=1=2=3\n", "global", "A", "x", "A=x\n"},
        {"an empty value is filled", "A=\nB=1\n", "global", "A", "2", "A=2\nB=1\n"},
        {"taken out", "A=1\nB=2\n", "global", "A", "", "B=2\n"},
        {"all of them are taken out", "A=1\nB=2\n[X]\nC=1\n[global]\nA=3", "global", "A", "",
         "B=2\n[X]\nC=1\n[global]\n"},
        {"nothing to take out", "B=2\n", "global", "A", "", "B=2\n"},
        {"keys are case-sensitive", "a=1\n", "global", "A", "2", "a=1\nA=2\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(withValue(c.before, c.section, c.key, c.value), c.after);
    }
}

TEST(SettingsText, LeavesOutTheMarkInFrontAndNoOther) {
    const std::string mark = "\xef\xbb\xbf";
    EXPECT_EQ(withoutMark(mark + "A=1"), "A=1");
    EXPECT_EQ(withoutMark(mark + mark + "A=1"), mark + "A=1") << "the second is text";
    EXPECT_EQ(withoutMark("A=" + mark), "A=" + mark);
    EXPECT_EQ(withoutMark("\xef\xbb"), "\xef\xbb") << "half a mark";
    EXPECT_EQ(withoutMark(""), "");
}

TEST(SettingsText, SeesWhatMakesTheDriverRefuseAFile) {
    EXPECT_FALSE(hasControlCharacters("A=1\r\n\xc3\xa4=2\n"));
    EXPECT_TRUE(hasControlCharacters(";\tA"));
    EXPECT_TRUE(hasControlCharacters(std::string("A\0B", 3)));
    EXPECT_EQ(withoutControlCharacters("A=\t1\x01\r\n"), "A= 1\r\n");
}

// What a tree says: entries without a value, and sections without entries, say nothing.
std::map<std::string, std::string> said(const ZENNO::InfFile& tree) {
    std::map<std::string, std::string> all;
    for (const auto& [section, entries] : tree.sections()) {
        for (const auto& [key, entry] : entries) {
            if (!entry.value.empty()) all["[" + section + "]" + key] = entry.value;
        }
    }
    return all;
}

// Whatever the file: the driver's reader finds the new value, and all else as it was.
TEST(SettingsText, GivesTheReaderTheChangeAndNothingElse) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const std::string pieces[] = {"A",  "B",   "Key",       "=",  " ",   "1",  "x y",   ";",
                                  "#",  "//",  "[",         "]",  "LOW", "\n", "\r\n",  "\r",
                                  "\n", "A=1", "\n[LOW]\n", "[]", "\n",  "B=", "[a.b]", "global"};
    const std::string sections[] = {"global", "LOW", "a.b"};
    const std::string keys[] = {"A", "B", "Key", "New"};
    const std::string values[] = {"", "1", "a=b", "some text"};
    const auto pick = [&](const auto& of) { return of[random() % std::size(of)]; };
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        for (auto i = random() % 40; i > 0; --i) text += pick(pieces);
        const std::string section = pick(sections), key = pick(keys), value = pick(values);
        SCOPED_TRACE(text + " | " + section + " | " + key + " | " + value);

        ZENNO::InfFile before, after;
        before.parseText(text);
        after.parseText(withValue(text, section, key, value));
        after.selectSection(section);
        ASSERT_EQ(after.get(key), value);
        before.selectSection(section);
        before.set(key, value);
        ASSERT_EQ(said(after), said(before));
    }
}

}  // namespace
