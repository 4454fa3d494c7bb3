// An inbox that is a folder.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <set>

#include "target/InboxFiles.h"
#include "tests/base/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class Inbox : public testing::Test {
protected:
    Names names() const {
        Names found;
        for (const auto& entry : fs::directory_iterator(folder.native())) {
            found.insert(entry.path().filename().string());
        }
        return found;
    }
    std::string contents(const std::string& name) const {
        std::ifstream file(folder.native() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static ZENNO::Bytes bytes(const std::string& text) { return {text.begin(), text.end()}; }

    velmora_test::TempFolder folder;
    velmora_target::MakeInboxItem make = velmora_target::inboxFolder(folder.native().string());
};

TEST_F(Inbox, IsNotTouchedBeforeThereIsSomething) {
    make(0)->discard();
    make(0);
    EXPECT_EQ(names(), Names{});
}

TEST_F(Inbox, HasATransferUnderItsNameOnceItIsWhole) {
    const auto item = make(3);
    EXPECT_EQ(item->append(bytes("ab")), "");
    EXPECT_EQ(names(), Names{"channel-3-1.bin.part"});
    EXPECT_EQ(item->append(bytes("c")), "");
    EXPECT_EQ(item->finish(), "");
    EXPECT_EQ(names(), Names{"channel-3-1.bin"});
    EXPECT_EQ(item->where(), (folder.native() / "channel-3-1.bin").string());
    EXPECT_EQ(contents("channel-3-1.bin"), "abc");
}

TEST_F(Inbox, HasAnEmptyFileForAnEmptyTransfer) {
    EXPECT_EQ(make(0)->finish(), "");
    EXPECT_EQ(names(), Names{"channel-0-1.bin"});
}

TEST_F(Inbox, CountsUpAndOverwritesNothing) {
    std::ofstream(folder.native() / "channel-0-2.bin") << "mine";
    std::ofstream(folder.native() / "channel-0-3.bin.part") << "of a target that crashed";
    for (const char* text : {"a", "b", "c"}) {
        const auto item = make(0);
        item->append(bytes(text));
        EXPECT_EQ(item->finish(), "");
    }
    EXPECT_EQ(names(), (Names{"channel-0-1.bin", "channel-0-2.bin", "channel-0-3.bin.part",
                              "channel-0-4.bin", "channel-0-5.bin"}));
    EXPECT_EQ(contents("channel-0-2.bin"), "mine");
    EXPECT_EQ(contents("channel-0-4.bin"), "b");
}

TEST_F(Inbox, TakesTheNextNameWhenAnotherTargetWasQuicker) {
    const auto item = make(0);
    item->append(bytes("late"));
    std::ofstream(folder.native() / "channel-0-1.bin") << "quick";
    EXPECT_EQ(item->finish(), "");
    EXPECT_EQ(names(), (Names{"channel-0-1.bin", "channel-0-2.bin"}));
    EXPECT_EQ(contents("channel-0-1.bin"), "quick");
    EXPECT_EQ(contents("channel-0-2.bin"), "late");
}

TEST_F(Inbox, GivesNoNumberTwiceThoughFilesAreTakenAway) {
    const auto put = [this](std::uint16_t channel) { EXPECT_EQ(make(channel)->finish(), ""); };
    put(0);
    put(0);
    fs::remove(folder.native() / "channel-0-1.bin");
    fs::remove(folder.native() / "channel-0-2.bin");
    put(0);
    put(1);
    EXPECT_EQ(names(), (Names{"channel-0-3.bin", "channel-1-1.bin"})) << "each channel by itself";
    make(0)->append(bytes("x"));
    put(0);
    EXPECT_TRUE(names().contains("channel-0-4.bin")) << "what was discarded had no number yet";
}

TEST_F(Inbox, GivesANameOnceAllOfItIsOnTheMedium) {
    bool works = false;
    const auto through = velmora_target::inboxFolder(folder.native().string(), [&](std::FILE* f) {
        EXPECT_EQ(std::ftell(f), 3);
        EXPECT_EQ(names(), Names{"channel-0-1.bin.part"});
        errno = EIO;
        return works;
    });
    auto item = through(0);
    item->append(bytes("abc"));
    EXPECT_EQ(item->finish(), "cannot write " +
                                  (folder.native() / "channel-0-1.bin.part").string() +
                                  ": Input/output error");
    EXPECT_EQ(names(), Names{});
    works = true;
    item = through(0);
    item->append(bytes("abc"));
    EXPECT_EQ(item->finish(), "");
    EXPECT_EQ(names(), Names{"channel-0-1.bin"});
}

TEST_F(Inbox, KeepsNothingOfWhatIsNotFinished) {
    {
        const auto item = make(0);
        item->append(bytes("x"));
    }
    const auto item = make(0);
    item->append(bytes("x"));
    item->discard();
    EXPECT_EQ(names(), Names{});
}

TEST_F(Inbox, SaysWhyItCannotBeWritten) {
    const auto gone = velmora_target::inboxFolder((folder.native() / "none").string())(0);
    const std::string draft = (folder.native() / "none" / "channel-0-1.bin.part").string();
    EXPECT_EQ(gone->append(bytes("x")), "cannot write " + draft + ": No such file or directory");
    EXPECT_EQ(gone->finish(), "cannot write " + draft + ": No such file or directory");

    fs::create_directory(folder.native() / "in");
    const auto item = velmora_target::inboxFolder((folder.native() / "in").string())(0);
    EXPECT_EQ(item->append(bytes("x")), "");
    fs::remove_all(folder.native() / "in");
    EXPECT_NE(item->finish(), "");
    EXPECT_EQ(item->where(), "");
}

}  // namespace
