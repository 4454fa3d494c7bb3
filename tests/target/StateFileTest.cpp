// What a target keeps: one small file, whole or not at all.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "target/StateFile.h"
#include "tests/base/TempFolder.h"

namespace {

using velmora_target::KeptValues;
using velmora_target::StateFile;

class State : public testing::Test {
protected:
    std::string contents() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void put(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    std::string load() {
        values.clear();
        return StateFile(path).load(values);
    }
    std::string entry(const std::string& line) {
        put("[velmora-target]\r\n" + line + "\r\n");
        return load();
    }
    velmora_test::TempFolder folder;
    std::string path = (folder.native() / "state.inf").string();
    KeptValues values;
};

TEST_F(State, ComesBackAsItWasSaved) {
    const KeptValues all{{"name", {0, " \"a\" = ; b\xc3\xa9 "}},
                         {"buffer", {60000, {}}},
                         {"clockTrim", {0xfc18, {}}},
                         {"feedback", {3, {}}},
                         {"phaseInversion", {1, {}}},
                         {"announce", {0, {}}},
                         {"output", {1, " night "}}};
    EXPECT_EQ(StateFile(path).save(all), "");
    EXPECT_EQ(load(), "");
    EXPECT_EQ(values, all);
    EXPECT_EQ(StateFile(path).save({}), "");
    EXPECT_EQ(load(), "") << "with nothing in it as well";
    EXPECT_EQ(values, KeptValues{});
}

TEST_F(State, IsAFileThatPeopleCanRead) {
    EXPECT_EQ(StateFile(path).save({{"name", {0, "Kitchen"}}, {"output", {3, {}}}}), "");
    EXPECT_EQ(contents(),
              "[velmora-target]\r\nname=\"Kitchen\"\r\noutput=3 \"\"\r\nversion=1\r\n\r\n");
}

TEST_F(State, LeavesWhatALaterReleaseWrote) {
    put("[elsewhere]\nx=1\n[velmora-target]\nname=\"a\"\ncolour=red\n");
    StateFile file(path);
    EXPECT_EQ(file.load(values), "");
    EXPECT_EQ(file.save({{"name", {0, "b"}}}), "");
    EXPECT_NE(contents().find("colour=red"), std::string::npos);
    EXPECT_NE(contents().find("x=1"), std::string::npos);
    EXPECT_EQ(load(), "");
    EXPECT_EQ(values, (KeptValues{{"name", {0, "b"}}}));
}

TEST_F(State, NeedNotBeThereButItsFolderMust) {
    EXPECT_EQ(load(), "");
    EXPECT_EQ(values, KeptValues{});
    path = (folder.native() / "none" / "state.inf").string();
    EXPECT_EQ(load(), "there is no folder " + (folder.native() / "none").string());
}

TEST_F(State, ThatIsDamagedIsNoState) {
    struct Case {
        const char* why;
        const char* line;
    };
    const Case cases[] = {
        {"a text without its quotes", "name=Kitchen"},
        {"a text cut off", "name=\"Kitch"},
        {"one quote", "name=\""},
        {"an empty name", "name=\"\""},
        {"no UTF-8", "name=\"\xff\""},
        {"no number", "buffer=x"},
        {"more than a number", "buffer=20ms"},
        {"out of bounds", "buffer=60001"},
        {"out of bounds, inside once cut to 16 bits", "buffer=65556"},
        {"below the bounds", "clockTrim=-1001"},
        {"a number for a person", "clockTrim=+5"},
        {"a path", "output=1 \"../x\""},
        {"a text behind a number", "announce=1 \"x\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_NE(entry(c.line).find(path + " is damaged: "), std::string::npos);
    }
    EXPECT_EQ(entry("buffer=60001"), path + " is damaged: buffer=60001: not from 0 to 60000");
    EXPECT_EQ(entry("buffer=20"), "");
}

TEST_F(State, ThatIsSomethingElseIsSaidToBe) {
    for (const char* other : {"", "hello\n", "[velmora]\nname=\"x\"\n"}) {
        put(other);
        EXPECT_EQ(load(), path + " is no state file: it has no section [velmora-target]");
    }
    put(std::string("[velmora-target]\nname=\"\x01\"\n"));
    EXPECT_EQ(load(), path + " is damaged: it holds control characters");
    path = folder.native().string();
    EXPECT_EQ(load(), path + " cannot be read");
}

TEST_F(State, ThatCannotBeWrittenLeavesTheOldOneAndNoDraft) {
    EXPECT_EQ(StateFile(path).save({{"buffer", {20, {}}}}), "");
    const std::string before = contents();
    // A folder where the draft should be: that fails for any user.
    std::filesystem::create_directory(path + ".tmp");
    EXPECT_EQ(StateFile(path).save({{"buffer", {30, {}}}}).find("cannot write " + path + ".tmp: "),
              0u);
    EXPECT_EQ(contents(), before);
    std::filesystem::remove(path + ".tmp");

    // And a folder that is not empty where the file should be.
    std::filesystem::create_directories(folder.native() / "full" / "x");
    const std::string full = (folder.native() / "full").string();
    EXPECT_EQ(StateFile(full).save({}).find("cannot write " + full + ": "), 0u);
    EXPECT_FALSE(std::filesystem::exists(full + ".tmp"));
}

TEST_F(State, ThatCouldNotBeWrittenIsNotWrittenLater) {
    StateFile file(path);
    EXPECT_EQ(file.save({{"buffer", {20, {}}}}), "");
    const std::string before = contents();
    std::filesystem::create_directory(path + ".tmp");
    EXPECT_NE(file.save({{"buffer", {20, {}}}, {"name", {0, "Kitchen"}}}), "");
    std::filesystem::remove(path + ".tmp");
    EXPECT_EQ(file.save({{"buffer", {20, {}}}}), "");
    EXPECT_EQ(contents(), before) << "without the name that its host was told is not kept";
}

TEST_F(State, TakesTheOldOnesPlaceOnceItIsOnTheMedium) {
    EXPECT_EQ(StateFile(path).save({{"buffer", {20, {}}}}), "");
    const std::string before = contents();
    bool works = false;
    StateFile file(path, [&](std::FILE* draft) {
        EXPECT_GT(std::ftell(draft), 0) << "all of it is there";
        EXPECT_EQ(contents(), before);
        errno = EIO;
        return works;
    });
    EXPECT_EQ(file.save({{"buffer", {30, {}}}}),
              "cannot write " + path + ".tmp: Input/output error");
    EXPECT_EQ(contents(), before);
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    works = true;
    EXPECT_EQ(file.save({{"buffer", {30, {}}}}), "");
    EXPECT_NE(contents(), before);
}

TEST_F(State, HasNoRoomOnAFullDisk) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    std::filesystem::create_symlink("/dev/full", path + ".tmp");
    EXPECT_EQ(StateFile(path).save({}), "cannot write " + path + ".tmp: No space left on device");
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
