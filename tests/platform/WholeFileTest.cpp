#include "platform/WholeFile.h"

#include <gtest/gtest.h>

#if __has_include(<sys/resource.h>)
#include <sys/resource.h>

#include <csignal>
#endif

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/System.h"
#include "tests/base/TempFolder.h"

using namespace ZENNO::platform;
using velmora_test::TempFolder;
namespace fs = std::filesystem;

namespace {

WriteOutcome replace(const std::string& path, const std::string& text) {
    return replaceWholeFile(path, reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

std::string read(const std::string& path) {
    std::vector<std::uint8_t> data;
    if (!readWholeFile(path, data)) return "(not read)";
    return std::string(data.begin(), data.end());
}

int entries(const TempFolder& folder) {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder.native())) ++count;
    return count;
}

}  // namespace

TEST(WholeFile, IsMadeAndThenReplacedAndLeavesNothingBeside) {
    const TempFolder temp;
    EXPECT_EQ(replace(temp.path() + "a.inf", "one"), WriteOutcome::done);
    EXPECT_EQ(read(temp.path() + "a.inf"), "one");
    EXPECT_EQ(replace(temp.path() + "a.inf", ""), WriteOutcome::done);
    EXPECT_EQ(read(temp.path() + "a.inf"), "");
    const std::string large(3'000'000, 'x');
    EXPECT_EQ(replace(temp.path() + "a.inf", large), WriteOutcome::done);
    EXPECT_EQ(read(temp.path() + "a.inf"), large);
    EXPECT_EQ(entries(temp), 1);
}

TEST(WholeFile, TakesANameBeyondAscii) {
    const TempFolder temp;
    const std::string path = temp.makeFolder(u8"Küche ☃") + "setting.inf";
    EXPECT_EQ(replace(path, "one"), WriteOutcome::done);
    EXPECT_EQ(read(path), "one");
}

TEST(WholeFile, TakesThePlaceOfWhatABrokenOffWriteLeft) {
    const TempFolder temp;
    std::ofstream(temp.native() / "a.inf.new") << "half of what was to";
    EXPECT_EQ(replace(temp.path() + "a.inf", "one"), WriteOutcome::done);
    EXPECT_EQ(entries(temp), 1);
}

TEST(WholeFile, WithoutAFolderSaysSo) {
    const TempFolder temp;
    EXPECT_EQ(replace(temp.path() + "none\\a.inf", "one"), WriteOutcome::noFolder);
    EXPECT_EQ(replace("", "one"), WriteOutcome::noFolder);
    EXPECT_EQ(replace(temp.path() + std::string(300, 'n'), "one"), WriteOutcome::noFolder);
    EXPECT_EQ(entries(temp), 0);
}

TEST(WholeFile, ThatIsWriteProtectedStays) {
    const TempFolder temp;
    const fs::path native = temp.native() / "a.inf";
    std::ofstream(native) << "one";
    fs::permissions(native, fs::perms::owner_read);
    EXPECT_EQ(replace(temp.path() + "a.inf", "two"), WriteOutcome::readOnly);
    fs::permissions(native, fs::perms::owner_all);
    EXPECT_EQ(read(temp.path() + "a.inf"), "one");
    EXPECT_EQ(entries(temp), 1);
}

#if __has_include(<sys/resource.h>)
TEST(WholeFile, ThatFindsNoRoomStaysAndLeavesNothingBeside) {
    const TempFolder temp;
    ASSERT_EQ(replace(temp.path() + "a.inf", "one"), WriteOutcome::done);
    // No file may grow beyond this: what a full disk does, too.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1000, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const WriteOutcome outcome = replace(temp.path() + "a.inf", std::string(5000, 'x'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(outcome, WriteOutcome::noRoom);
    EXPECT_EQ(read(temp.path() + "a.inf"), "one");
    EXPECT_EQ(entries(temp), 1);
}
#endif

TEST(WholeFile, NeverTakesThePlaceOfAFolder) {
    const TempFolder temp;
    temp.makeFolder(u8"a.inf");
    EXPECT_EQ(replace(temp.path() + "a.inf", "two"), WriteOutcome::refused);
    EXPECT_EQ(fileKind(temp.path() + "a.inf"), FileKind::folder);
    EXPECT_EQ(entries(temp), 1);
}

TEST(WholeFile, FolderIsMadeWithAllAboveIt) {
    const TempFolder temp;
    EXPECT_TRUE(makeFolder(temp.path() + "a\\b c\\d\\"));
    EXPECT_EQ(fileKind(temp.path() + "a\\b c\\d"), FileKind::folder);
    EXPECT_TRUE(makeFolder(temp.path() + "a\\b c\\d")) << "it is there";
    EXPECT_FALSE(makeFolder(""));
    std::ofstream(temp.native() / "file") << "x";
    EXPECT_FALSE(makeFolder(temp.path() + "file"));
    EXPECT_FALSE(makeFolder(temp.path() + "file\\below"));
}
