// The program as it is built: its help, and what it exits with as far as no network is needed.
#include <filesystem>

#include "tests/apps/FindWorld.h"
#include "tests/apps/Program.h"

namespace velmora_test {
namespace {

class FindProgram : public testing::Test, protected Program {
protected:
    FindProgram()
        : Program(std::filesystem::path(VELMORA_PLAY).replace_filename("velmora-find").string()) {}
};

TEST_F(FindProgram, HelpsWithEveryCommandAndEveryExitCode) {
    EXPECT_EQ(run("--help"), 0);
    EXPECT_THAT(errors, IsEmpty());
    for (const char* word : {"list", "watch", "info", "settings", "set", "send", "doctor",
                             "--verbose", "ADDRESS is what", "Examples:"}) {
        EXPECT_THAT(output, HasSubstr(word));
    }
    const auto codes = output.substr(output.find("Exit codes:"));
    for (const auto& row : velmora_find::exitMeanings) {
        EXPECT_THAT(codes, HasSubstr("  " + std::to_string(row.code) + "  " + row.meaning));
    }
}

TEST_F(FindProgram, TellsItsRelease) {
    EXPECT_EQ(run("--version"), 0);
    EXPECT_EQ(output, VELMORA_RELEASE "\n");
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(FindProgram, HelpsWithTheOptionsOfEachCommand) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> commands = {
        {"list", {"--all", "--interface", "--json"}},
        {"watch", {"--all", "--interface", "--seconds", "--json"}},
        {"info", {"ADDRESS", "--interface", "--json"}},
        {"settings", {"ADDRESS", "--kept", "--json"}},
        {"set", {"ADDRESS", "LABEL", "VALUE", "--keep", "--text", "CHOICE:TEXT"}},
        {"send", {"ADDRESS", "CHANNEL", "FILE", "--limit", "--json"}},
        {"doctor", {"--interface", "--json"}},
    };
    for (const auto& [command, words] : commands) {
        SCOPED_TRACE(command);
        EXPECT_EQ(run(command + " --help"), 0);
        for (const std::string& word : words) EXPECT_THAT(output, HasSubstr(word));
        // There is no DLL to name here.
        EXPECT_THAT(output, Not(HasSubstr("--dll")));
    }
}

TEST_F(FindProgram, ExitsWithTwoForWrongArguments) {
    const char* wrong[] = {
        "",
        "nonsense",
        "--no-such-option",
        "list extra",
        "list --interface",
        "list --dll x.dll",
        "list info",
        "watch --seconds -1",
        "watch --seconds soon",
        "info",
        "settings",
        "set fe80::1",
        "set fe80::1 Name",
        "set fe80::1 Name a b",
        "send fe80::1",
        "send fe80::1 0",
        "send fe80::1 -1 /dev/null",
        "send fe80::1 65535 /dev/null",
        "send fe80::1 one /dev/null",
        "send fe80::1 0 /dev/null --limit 0",
        "send fe80::1 0 /dev/null --limit many",
    };
    for (const char* arguments : wrong) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(run(arguments), velmora_find::exitUsage);
        EXPECT_THAT(output, IsEmpty());
        EXPECT_THAT(errors, Not(IsEmpty()));
    }
}

TEST_F(FindProgram, ExitsWithFourForAFileThatIsNotThere) {
    EXPECT_EQ(run("send ::1 0 " + scratch.path("none.bin")), velmora_find::exitFile);
    EXPECT_THAT(errors, HasSubstr("none.bin: there is no such file."));
    EXPECT_THAT(output, IsEmpty());
}

// ---- arguments that look like something else, in memory ----

class FindArguments : public FindWorld {
protected:
    FindArguments() {
        items = {{2, 0xfff6, 10, "Trim", 0, 0, "", {}}, {4, 0, 0, "-x", 0, 0, "", {}}};
        offerItems();
    }
};

TEST_F(FindArguments, TakeANegativeNumberAsAValue) {
    EXPECT_EQ(run({"set", "fe80::2", "Trim", "-7"}), velmora_find::exitDone) << talk.str();
    EXPECT_EQ(items[0].current, 0xfff9);
}

TEST_F(FindArguments, TakeAnythingBehindTwoDashes) {
    EXPECT_EQ(run({"set", "--keep", "fe80::2", "--", "-x", "--json"}), velmora_find::exitDone)
        << talk.str();
    EXPECT_EQ(items[1].text, "--json");
}

TEST_F(FindArguments, TakeAnEmptyValue) {
    items[1].text = "something";
    EXPECT_EQ(run({"set", "fe80::2", "#2", ""}), velmora_find::exitDone) << talk.str();
    EXPECT_EQ(items[1].text, "");
}

TEST_F(FindArguments, TakeOptionsOnEitherSideOfTheCommand) {
    EXPECT_EQ(run({"--verbose", "info", "--json", "fe80::2"}), velmora_find::exitDone);
    EXPECT_EQ(run({"info", "fe80::2", "--verbose"}), velmora_find::exitDone);
}

TEST_F(FindArguments, TakeNoSecondsThatAreNoNumber) {
    for (const char* seconds : {"nan", "-nan", "NAN", "inf", "-inf", "1e999", ""}) {
        SCOPED_TRACE(seconds);
        EXPECT_EQ(run({"watch", "--seconds", seconds}), velmora_find::exitUsage);
    }
}

TEST_F(FindArguments, NameTheDllToTheFinderThatHasOne) {
    EXPECT_EQ(run({"list"}), velmora_find::exitDone);
    EXPECT_EQ(dllAsked, "");
}

TEST_F(FindArguments, EndInASentenceWhenTheFinderIsNotThere) {
    context.finder = [](const std::string&) -> velmora_find::FinderPointer {
        throw velmora_find::Stop{velmora_find::exitFile, "The driver is not installed."};
    };
    EXPECT_EQ(run({"list"}), velmora_find::exitFile);
    EXPECT_EQ(talk.str(), "The driver is not installed.\n");
    context.finder = [](const std::string&) -> velmora_find::FinderPointer {
        throw std::runtime_error("boom");
    };
    EXPECT_EQ(run({"list"}), velmora_find::exitFault);
    EXPECT_THAT(talk.str(), HasSubstr("boom"));
}

TEST_F(FindArguments, EndInASentenceWhenTheResultHasNowhereToGo) {
    out.setstate(std::ios::badbit);
    EXPECT_EQ(velmora_find::run({"list"}, context), velmora_find::exitFile);
    EXPECT_THAT(talk.str(), HasSubstr("cannot be written"));
}

}  // namespace
}  // namespace velmora_test
