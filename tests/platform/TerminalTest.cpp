#include "platform/Terminal.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/base/TempFolder.h"

namespace {

// Last of what this program's output is used for in it: it goes to a file from here on, in a child.
TEST(TerminalDeathTest, OutputThatGoesToAFileTakesNoColours) {
    const velmora_test::TempFolder folder;
    const std::string out = (folder.native() / "out").string();
    EXPECT_EXIT(
        {
            const bool moved = std::freopen(out.c_str(), "w", stdout) != nullptr;
            std::exit(moved && !ZENNO::platform::outputTakesColours() ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

TEST(TerminalDeathTest, ErrorsThatGoToAFileAreNotOnAScreen) {
    const velmora_test::TempFolder folder;
    const std::string out = (folder.native() / "out").string();
    EXPECT_EXIT(
        {
            const bool moved = std::freopen(out.c_str(), "w", stderr) != nullptr;
            std::exit(moved && !ZENNO::platform::errorIsTerminal() ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
