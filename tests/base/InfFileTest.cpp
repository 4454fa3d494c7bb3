#include "base/InfFile.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "base/Path.h"
#include "tests/base/TempFolder.h"

using namespace ZENNO;
using velmora_test::TempFolder;

namespace {

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

InfFile parsed(std::string_view text) {
    InfFile tree;
    tree.parseText(text);
    return tree;
}

std::string textOf(const InfFile& tree) {
    std::string out = "before";
    tree.toText(out);
    return out;
}

class InfFileOnDisk : public testing::Test {
protected:
    std::string put(const std::string& name, const std::string& content) {
        const std::string path = temp.path() + name;
        EXPECT_TRUE(writeFile(bytesOf(content), path));
        return path;
    }
    TempFolder temp;
};

}  // namespace

TEST(InfFile, IsEmptyAtFirst) {
    const InfFile tree;
    EXPECT_EQ(tree.currentName(), "global");
    EXPECT_EQ(tree.entryCount(), 0u);
    EXPECT_EQ(tree.path(), "");
    EXPECT_EQ(tree.get("key"), "");
    EXPECT_EQ(textOf(tree), "");
}

TEST(InfFile, TakesTheCurrentSectionAtConstruction) {
    InfFile tree("net");
    EXPECT_EQ(tree.currentName(), "net");
    tree.parseText("key=0\n[net]\nkey=1");
    EXPECT_EQ(tree.get("key"), "1");
    EXPECT_EQ(InfFile("").currentName(), "global");
}

TEST(InfFile, SplitsLines) {
    struct Case {
        const char* why;
        std::string data;
        bool allowTab, sound;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"nothing", "", false, true, {}},
        {"one line", "a", false, true, {"a"}},
        {"LF", "a\nb\n", false, true, {"a", "b"}},
        {"CR", "a\rb\r", false, true, {"a", "b"}},
        {"CR LF", "a\r\nb\r\n", false, true, {"a", "b"}},
        {"empty lines are dropped", "\n\na\n\r\n\nb", false, true, {"a", "b"}},
        {"a line of blanks is a line", "a\n  \nb", false, true, {"a", "  ", "b"}},
        {"a byte-order mark in front",
         "\xef\xbb\xbf"
         "a\nb",
         false,
         true,
         {"a", "b"}},
        {"a byte-order mark alone", "\xef\xbb\xbf", false, true, {}},
        {"only the first mark is one",
         "\xef\xbb\xbf\xef\xbb\xbf"
         "a",
         false,
         true,
         {"\xef\xbb\xbf"
          "a"}},
        {"half a mark belongs to the line",
         "\xef\xbb"
         "a",
         false,
         true,
         {"\xef\xbb"
          "a"}},
        {"high bytes belong to the line", "\x80\xff\x7f", false, true, {"\x80\xff\x7f"}},
        {"a tab is refused, and left out", "a\tb\nc", false, false, {"ab", "c"}},
        {"a tab is kept where allowed", "a\tb\nc", true, true, {"a\tb", "c"}},
        {"other control characters never are",
         "a\x1f"
         "b\x01\nc",
         true,
         false,
         {"ab", "c"}},
        {"a NUL too", std::string("a\0b", 3), false, false, {"ab"}},
        {"a line of control characters is empty", "a\n\x01\nb", false, false, {"a", "b"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::vector<std::string> lines;
        EXPECT_EQ(splitLines(bytesOf(c.data), lines, c.allowTab), c.sound);
        EXPECT_EQ(lines, c.lines);
    }
    std::vector<std::string> lines{"first"};
    EXPECT_TRUE(splitLines(bytesOf("second"), lines, /*allowTab=*/false));
    EXPECT_EQ(lines, (std::vector<std::string>{"first", "second"}));
}

TEST(InfFile, ParsesLines) {
    struct Case {
        const char* why;
        const char* text;
        const char* tree;  // as toText has it, with LF
    };
    const Case cases[] = {
        {"nothing", "", ""},
        {"an entry goes to global", "key=1", "[global]\nkey=1\n\n"},
        {"an entry of a section", "[a]\nkey=1", "[a]\nkey=1\n\n"},
        {"blanks around key and value", "  key  =  some value  ", "[global]\nkey=some value\n\n"},
        {"blanks inside a key", "a b = c", "[global]\na b=c\n\n"},
        {"further equals signs are value", "key=a=b==", "[global]\nkey=a=b==\n\n"},
        {"no key", "=value", ""},
        {"blanks are no key", "   = value", ""},
        {"no equals sign", "value", ""},
        {"an empty value makes a section, and is not written", "key=", "[global]\n\n"},
        {"a section without entries is none", "[a]", ""},
        {"comments", ";a=1\n#b=2\n//c=3\n  ; d=4\n  // e=5", ""},
        {"one slash is no comment", "/ x=1", "[global]\n/ x=1\n\n"},
        {"no comment behind a value", "key=1 ; one", "[global]\nkey=1 ; one\n\n"},
        {"blanks around a section", "  [ name ]   \nkey=1", "[name]\nkey=1\n\n"},
        {"a section without its end leaves the section", "[a]\n[name\nkey=1", "[a]\nkey=1\n\n"},
        {"text behind a section leaves the section", "[a]\n[b] c\nkey=1", "[a]\nkey=1\n\n"},
        {"a lone bracket leaves the section", "[a]\n[\nkey=1", "[a]\nkey=1\n\n"},
        {"a bracket inside a name", "[a]b]\nkey=1", "[a]b]\nkey=1\n\n"},
        {"an empty section is global", "[a]\n[]\nkey=1", "[global]\nkey=1\n\n"},
        {"a section of blanks is global", "[a]\n[  ]\nkey=1", "[global]\nkey=1\n\n"},
        {"a section line is no entry", "[a=1]\nkey=1", "[a=1]\nkey=1\n\n"},
        {"sections and keys sort by bytes", "[b]\nz=1\nB=2\na=3\n[a.b]\nx=1\n[a]\nx=1\n[ab]\nx=1",
         "[a]\nx=1\n\n[a.b]\nx=1\n\n[ab]\nx=1\n\n[b]\nB=2\na=3\nz=1\n\n"},
        {"a section may come twice", "[a]\nx=1\n[b]\ny=2\n[a]\nz=3",
         "[a]\nx=1\nz=3\n\n[b]\ny=2\n\n"},
        {"case counts", "key=1\nKey=2", "[global]\nKey=2\nkey=1\n\n"},
        {"a tab is text", "key=a\tb", "[global]\nkey=a\tb\n\n"},
        {"a tab is no white space", "\tkey=1\t", "[global]\n\tkey=1\t\n\n"},
        {"any line end", "a=1\rb=2\r\nc=3\n\nd=4", "[global]\na=1\nb=2\nc=3\nd=4\n\n"},
        {"a mark in text is text", "\xef\xbb\xbfkey=1", "[global]\n\xef\xbb\xbfkey=1\n\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        std::string expected;
        for (const char* at = c.tree; *at; ++at)
            expected += *at == '\n' ? "\r\n" : std::string(1, *at);
        EXPECT_EQ(textOf(parsed(c.text)), expected);
    }
}

TEST(InfFile, EmptyValueReadsAsAnAbsentKey) {
    const InfFile tree = parsed("key=\nother=1");
    EXPECT_EQ(tree.get("key"), "");
    EXPECT_EQ(tree.sections().at("global").count("key"), 1u);
    EXPECT_EQ(textOf(tree), "[global]\r\nother=1\r\n\r\n");
}

TEST(InfFile, LastOfEqualKeysHoldsAndBothAreCounted) {
    const InfFile tree = parsed("key=1\nkey=2");
    EXPECT_EQ(tree.get("key"), "2");
    EXPECT_EQ(tree.entryCount(), 2u);
    EXPECT_EQ(tree.sections().at("global").at("key").order, 2u);
}

TEST(InfFile, CountsEntriesOnThroughEveryParse) {
    InfFile tree = parsed("a=1\nb=2");
    tree.parseText("[s]\nc=3");
    EXPECT_EQ(tree.entryCount(), 3u);
    EXPECT_EQ(tree.sections().at("global").at("a").order, 1u);
    EXPECT_EQ(tree.sections().at("global").at("b").order, 2u);
    EXPECT_EQ(tree.sections().at("s").at("c").order, 3u);
}

TEST(InfFile, MergesASecondTextFromGlobalOn) {
    InfFile tree = parsed("a=1\nb=2\n[s]\nc=3");
    tree.parseText("b=20\nd=4");
    EXPECT_EQ(textOf(tree), "[global]\r\na=1\r\nb=20\r\nd=4\r\n\r\n[s]\r\nc=3\r\n\r\n");
}

TEST(InfFile, DottedSectionHidesItsParentWholly) {
    InfFile tree = parsed("[a]\nx=parent\ny=parent\n[a.b]\nx=child");
    tree.selectSection("a.b");
    EXPECT_EQ(tree.get("x"), "child");
    EXPECT_EQ(tree.get("y"), "");
}

TEST(InfFile, DottedSectionThatIsNotThereReadsFromItsParent) {
    InfFile tree = parsed("y=global\n[a]\nx=parent");
    tree.selectSection("a.b");
    EXPECT_EQ(tree.currentName(), "a.b");
    EXPECT_EQ(tree.get("x"), "parent");
    EXPECT_EQ(tree.get("y"), "") << "no way back to global";
    tree.selectSection("a.b.c");
    EXPECT_EQ(tree.get("x"), "parent") << "the parent is in front of the first point";
}

TEST(InfFile, MissingSectionReadsEmpty) {
    InfFile tree = parsed("x=1");
    tree.selectSection("missing");
    EXPECT_EQ(tree.get("x"), "");
    tree.selectSection(".x");
    EXPECT_EQ(tree.get("x"), "");
}

TEST(InfFile, EmptySelectionReadsNothingUntilTheNext) {
    InfFile tree = parsed("x=1");
    EXPECT_EQ(tree.get("x"), "1");
    tree.selectSection("");
    EXPECT_EQ(tree.currentName(), "global");
    EXPECT_EQ(tree.get("x"), "");
    tree.set("x", "2");
    EXPECT_EQ(tree.get("x"), "");
    tree.selectSection(tree.currentName());
    EXPECT_EQ(tree.get("x"), "2");
}

TEST(InfFile, SectionLineInATextDoesNotSelect) {
    InfFile tree = parsed("x=1\n[s]\nx=2");
    EXPECT_EQ(tree.currentName(), "global");
    EXPECT_EQ(tree.get("x"), "1");
    tree.selectSection("s");
    tree.parseText("[t]\nx=3");
    EXPECT_EQ(tree.currentName(), "s");
    EXPECT_EQ(tree.get("x"), "2");
}

TEST(InfFile, ParseMakesANewSectionVisible) {
    InfFile tree;
    tree.selectSection("s");
    tree.parseText("[s]\nx=1");
    EXPECT_EQ(tree.get("x"), "1");
}

TEST(InfFile, ReadsNumbers) {
    const InfFile tree = parsed("a=42\nb=-7 ms\nc=word\nd=\ne=+3\nf=9223372036854775807");
    EXPECT_EQ(tree.getNumber("a"), 42);
    EXPECT_EQ(tree.getNumber("b"), -7);
    EXPECT_EQ(tree.getNumber("c"), 0);
    EXPECT_EQ(tree.getNumber("d"), 0);
    EXPECT_EQ(tree.getNumber("absent"), 0);
    EXPECT_EQ(tree.getNumber("e"), 3);
    EXPECT_EQ(tree.getNumber("f"), std::numeric_limits<std::int64_t>::max());
}

TEST(InfFile, SetsValues) {
    InfFile tree = parsed("x=1");
    tree.set("x", "2");
    tree.set("n", 0);
    tree.set("m", std::int64_t{-5});
    tree.set("u", std::numeric_limits<std::uint64_t>::max());
    tree.set("s", std::string("text"));
    EXPECT_EQ(tree.get("x"), "2");
    EXPECT_EQ(tree.get("n"), "0");
    EXPECT_EQ(tree.get("m"), "-5");
    EXPECT_EQ(tree.get("u"), "18446744073709551615");
    EXPECT_EQ(tree.get("s"), "text");
    EXPECT_EQ(tree.sections().at("global").at("x").order, 1u) << "its place stays";
    EXPECT_EQ(tree.sections().at("global").at("n").order, 0u);
    EXPECT_EQ(tree.entryCount(), 1u);
}

TEST(InfFile, SectionMadeBySetIsSeenAfterTheNextSelection) {
    InfFile tree;
    tree.selectSection("s");
    tree.set("x", "1");
    EXPECT_EQ(tree.get("x"), "");
    tree.selectSection("s");
    EXPECT_EQ(tree.get("x"), "1");
}

TEST(InfFile, SetInADottedSectionDoesNotTouchItsParent) {
    InfFile tree = parsed("[a]\nx=1");
    tree.selectSection("a.b");
    tree.set("x", "2");
    EXPECT_EQ(tree.get("x"), "1");
    tree.selectSection("a.b");
    EXPECT_EQ(tree.get("x"), "2");
    EXPECT_EQ(tree.sections().at("a").at("x").value, "1");
}

TEST(InfFile, ListsASection) {
    const InfFile tree = parsed("b=2\na=1\nc=\n[s]\nx=1");
    std::string out = "before";
    tree.sectionText("global", out);
    EXPECT_EQ(out, "a=1\nb=2\nc=");
    tree.sectionText("s", out);
    EXPECT_EQ(out, "x=1");
    tree.sectionText("missing", out);
    EXPECT_EQ(out, "");
}

TEST(InfFile, CopiesAreTheirOwn) {
    InfFile tree = parsed("x=1\n[s]\nx=2");
    tree.selectSection("s");
    InfFile copy = tree;
    EXPECT_EQ(copy.currentName(), "s");
    EXPECT_EQ(copy.get("x"), "2");
    copy.set("x", "3");
    EXPECT_EQ(copy.get("x"), "3");
    EXPECT_EQ(tree.get("x"), "2");

    InfFile assigned = parsed("y=9");
    assigned = tree;
    tree = InfFile();
    EXPECT_EQ(assigned.get("x"), "2");
    EXPECT_EQ(assigned.entryCount(), 2u);
    const InfFile& same = assigned;
    assigned = same;
    EXPECT_EQ(assigned.get("x"), "2");
}

TEST(InfFile, TreesAreEqualByTheirContents) {
    EXPECT_EQ(parsed("a=1\nb=2"), parsed("; comment\nb=2\na=1"));
    EXPECT_NE(parsed("a=1"), parsed("a=2"));
    EXPECT_NE(parsed("a=1"), parsed("a=1\nb="));
    EXPECT_NE(parsed("a=1"), parsed("a=1\n[s]\nx=1"));
    InfFile selected = parsed("a=1");
    selected.selectSection("elsewhere");
    EXPECT_EQ(selected, parsed("a=1"));
}

TEST_F(InfFileOnDisk, Loads) {
    InfFile tree;
    const std::string path = put("a.inf", "\xef\xbb\xbfkey=1\r\n[s]\r\nx=gr\xc3\xbc\xc3\x9f\r\n");
    ASSERT_TRUE(tree.load(path));
    EXPECT_EQ(tree.get("key"), "1") << "the mark is no part of the key";
    EXPECT_EQ(tree.path(), path);
    tree.selectSection("s");
    EXPECT_EQ(tree.get("x"), "gr\xc3\xbc\xc3\x9f");
}

TEST_F(InfFileOnDisk, LoadsEveryKindOfLineEnd) {
    for (const char* text : {"a=1\rb=2", "a=1\nb=2\n", "a=1\r\nb=2\r\n"}) {
        InfFile tree;
        ASSERT_TRUE(tree.load(put("a.inf", text)));
        EXPECT_EQ(tree, parsed("a=1\nb=2"));
    }
}

TEST_F(InfFileOnDisk, MergesAFileLoadedLater) {
    InfFile tree;
    ASSERT_TRUE(tree.load(put("a.inf", "a=1\nb=2")));
    const std::string second = put("b.inf", "b=3");
    ASSERT_TRUE(tree.load(second));
    EXPECT_EQ(tree.get("a"), "1");
    EXPECT_EQ(tree.get("b"), "3");
    EXPECT_EQ(tree.path(), second);
}

TEST_F(InfFileOnDisk, WhatCannotBeLoadedLeavesTheTreeAlone) {
    InfFile tree;
    const std::string good = put("good.inf", "a=1");
    ASSERT_TRUE(tree.load(good));
    EXPECT_FALSE(tree.load(put("tab.inf", "a=2\n; a\ttab in a comment\n")));
    EXPECT_FALSE(tree.load(put("zero.inf", std::string("a=2\n\0", 5))));
    EXPECT_FALSE(tree.load(temp.path() + "missing.inf"));
    EXPECT_FALSE(tree.load(temp.path()));
    EXPECT_FALSE(tree.load(""));
    EXPECT_FALSE(tree.load(temp.path() + std::string(260, 'x')));
    EXPECT_EQ(tree, parsed("a=1"));
    EXPECT_EQ(tree.path(), good);
    EXPECT_EQ(tree.entryCount(), 1u);
}

TEST_F(InfFileOnDisk, LoadsAnEmptyFile) {
    InfFile tree;
    EXPECT_TRUE(tree.load(put("a.inf", "")));
    EXPECT_EQ(tree, InfFile());
}

TEST_F(InfFileOnDisk, SavesWhatToTextSays) {
    InfFile tree = parsed("b=2\na=\n[s]\nx=gr\xc3\xbc\xc3\x9f");
    const std::string path = temp.path() + "out.inf";
    ASSERT_TRUE(tree.save(path));
    Bytes data;
    ASSERT_TRUE(readFile(path, data));
    EXPECT_EQ(data, bytesOf("[global]\r\nb=2\r\n\r\n[s]\r\nx=gr\xc3\xbc\xc3\x9f\r\n\r\n"));

    InfFile back;
    ASSERT_TRUE(back.load(path));
    EXPECT_EQ(textOf(back), textOf(tree));
    EXPECT_FALSE(tree.save(temp.path() + "missing\\out.inf"));
}

TEST_F(InfFileOnDisk, FilesAreReadWrittenAndRemoved) {
    const std::string path = put("data", "abc");
    Bytes data;
    EXPECT_TRUE(readFile(path, data));
    EXPECT_EQ(data, bytesOf("abc"));
    EXPECT_TRUE(writeFile(BufferCS_const(), path));
    EXPECT_TRUE(readFile(path, data));
    EXPECT_TRUE(data.empty());
    EXPECT_TRUE(removeFile(path));
    EXPECT_FALSE(removeFile(path));
    EXPECT_FALSE(readFile(path, data));
}

TEST_F(InfFileOnDisk, SearchClimbsToTheFirstFolderThatYieldsAFile) {
    const std::string deep = temp.makeFolder(u8"a/b");
    put("name.inf", "where=top");
    put("a\\name.inf", "where=a\nx=common");
    put("a\\name_windows.inf", "where=platform");

    InfFile tree;
    std::string folder = "before";
    ASSERT_TRUE(tree.findAndLoadFrom(deep, "name", folder));
    EXPECT_EQ(folder, temp.path() + "a\\");
    EXPECT_EQ(tree.get("where"), "platform") << "the platform's file wins key by key";
    EXPECT_EQ(tree.get("x"), "common");
    EXPECT_EQ(tree.path(), folder + "name_windows.inf");
}

TEST_F(InfFileOnDisk, SearchTakesEitherFileAndPassesByWhatItCannotRead) {
    const std::string deep = temp.makeFolder(u8"a/b");
    temp.makeFolder(u8"a/b/name.inf");          // a folder of that name is no file
    put("a\\name.inf", "where=a\ttab");         // not readable
    put("name_windows.inf", "where=platform");  // alone

    InfFile tree;
    std::string folder;
    ASSERT_TRUE(tree.findAndLoadFrom(deep, "name", folder));
    EXPECT_EQ(folder, temp.path());
    EXPECT_EQ(tree.get("where"), "platform");
}

TEST_F(InfFileOnDisk, SearchThatFindsNothingNamesNoFolder) {
    InfFile tree;
    for (const std::string& start : {temp.path(), std::string(), std::string("no folder")}) {
        SCOPED_TRACE(start);
        std::string folder = "before";
        EXPECT_FALSE(tree.findAndLoadFrom(start, "no such name at all", folder));
        EXPECT_EQ(folder, "");
    }
    std::string folder = "before";
    EXPECT_FALSE(tree.findAndLoad("no such name at all", folder));
    EXPECT_EQ(folder, "");
}

TEST_F(InfFileOnDisk, SearchBeginsAtTheProgram) {
    std::string program;
    modulePath(program);
    ASSERT_TRUE(folderOf(program));
    const std::string name = "velmora-test-" + std::to_string(std::random_device{}());
    ASSERT_TRUE(writeFile(bytesOf("x=1"), program + name + ".inf"));
    InfFile tree;
    std::string folder;
    EXPECT_TRUE(tree.findAndLoad(name, folder));
    EXPECT_EQ(folder, program);
    EXPECT_EQ(tree.get("x"), "1");
    EXPECT_TRUE(removeFile(program + name + ".inf"));
}
