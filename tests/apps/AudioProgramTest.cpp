// velmora-audio as it is built: what it makes, and what it says of what was played and written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/apps/Program.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using velmora_test::Program;

struct AudioProgram : testing::Test {
    Program audio{VELMORA_AUDIO};

    std::string made(const std::string& name, const std::string& arguments) {
        const std::string path = audio.scratch.path(name);
        EXPECT_EQ(audio.run("generate --seconds 0.2 " + arguments + " " + path), 0) << audio.errors;
        return path;
    }
    nlohmann::json compared(const std::string& arguments, int code) {
        EXPECT_EQ(audio.run("compare --json " + arguments), code) << audio.errors;
        return nlohmann::json::parse(audio.output, nullptr, false);
    }
};

TEST_F(AudioProgram, MakesEveryWidthThatItNamesAndFindsItEqualToItself) {
    const struct {
        const char *arguments, *name, *said;
    } cases[] = {
        {"--bits 16", "a.wav", "Bit-exact: 16 bits, 2 channels, 44100 Hz"},
        {"--bits 24 --channels 1", "a.wav", "Bit-exact: 24 bits, 1 channel, 44100 Hz"},
        {"--bits 32 --rate 96000", "a.wav", "Bit-exact: 32 bits, 2 channels, 96000 Hz"},
        {"--bits f32", "a.wav", "Bit-exact: floating point"},
        {"--bits f64 --channels 8", "a.wav", "Bit-exact: floating point, 8 channels"},
        {"--dsd 64", "a.dsf", "Bit-exact: DSD, 2 channels, 2822400 Hz"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const std::string file = made(c.name, c.arguments);
        EXPECT_EQ(audio.run("compare " + file + " " + file), 0);
        EXPECT_THAT(audio.output, HasSubstr(c.said));
        EXPECT_THAT(audio.output, HasSubstr("silence in front"));
    }
}

TEST_F(AudioProgram, TellsWhatIsWrongWhatIsMissingAndWhere) {
    const std::string played = made("a.wav", "--bits 16 --seed 1");
    const std::string other = made("b.wav", "--bits 16 --seed 2");
    EXPECT_EQ(audio.run("compare " + played + " " + other), 1);
    for (const char* row : {"NOT bit-exact: 16 bits", "wrong", "missing", "the first wrong one"}) {
        EXPECT_THAT(audio.output, HasSubstr(row));
    }
    const auto told = compared(played + " " + other, 1);
    EXPECT_EQ(told.value("exact", true), false);
    EXPECT_EQ(told.value("frames", 0), 8820);
    EXPECT_GT(told.value("wrong", 0) + told.value("missing", 0), 0);
    EXPECT_FALSE(told.contains("target"));
    EXPECT_FALSE(told.contains("late_turns"));
}

TEST_F(AudioProgram, ShowsTheTargetsFiguresAndTheDriversLateTurnsBesideIt) {
    const std::string file = made("a.wav", "--bits 16");
    const std::string summary = audio.scratch.write(
        "target.json", "{\"type\":\"ready\"}\n{\"packets\":12,\"recovered\":3,\"lost\":0}\n\n");
    const std::string log = audio.scratch.write(
        "driver.log", "a localhost over time 5\nnothing\n localhost over time ");
    const std::string all = " --target-summary " + summary + " --driver-log " + log;
    EXPECT_EQ(audio.run("compare " + file + " " + file + all), 0);
    EXPECT_THAT(audio.output, testing::ContainsRegex("packets sent again +3\n"));
    EXPECT_THAT(audio.output, testing::ContainsRegex("late turns +2\n"));
    const auto told = compared(file + " " + file + all, 0);
    EXPECT_EQ(told["target"]["packets"], 12);
    EXPECT_EQ(told["late_turns"], 2);

    // A log that says nothing does not say that no turn was late.
    const std::string empty = audio.scratch.write("empty.log", "");
    const std::string damaged = audio.scratch.write("damaged.json", "{");
    EXPECT_EQ(audio.run("compare " + file + " " + file + " --driver-log " + empty +
                        " --target-summary " + damaged),
              0);
    EXPECT_THAT(audio.output, HasSubstr("not known: the driver's log is empty"));
    EXPECT_THAT(audio.output, testing::Not(HasSubstr("packets sent again")));
}

TEST_F(AudioProgram, ExitsWithTwoForWhatItCannotDo) {
    const std::string text = audio.scratch.write("text.wav", "This is no audio at all.");
    const std::string wav = made("a.wav", "--bits 16"), dsf = made("a.dsf", "--dsd 64");
    const std::string wrong[] = {
        "",
        "generate",
        "generate --bits 20 x.wav",
        "generate --dsd 65 x.dsf",
        "generate --rate 7999 x.wav",
        "generate --channels 9 x.wav",
        "generate --seconds 0 x.wav",
        "generate --seconds 0.01 /nowhere/at/all.wav",
        "generate --seconds 0.01 --dsd 64 /nowhere/at/all.dsf",
        "generate --seconds 0.2 /dev/full",
        "compare " + wav,
        "compare " + wav + " /nowhere/at/all.wav",
        "compare " + wav + " " + text,
        "compare " + wav + " " + dsf,
    };
    for (const std::string& arguments : wrong) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(audio.run(arguments), 2);
        EXPECT_NE(audio.errors, "");
        EXPECT_THAT(audio.output, IsEmpty());
    }
    EXPECT_EQ(audio.run("--help"), 0);
    EXPECT_EQ(audio.run("--version"), 0);
    EXPECT_EQ(audio.output, VELMORA_RELEASE "\n");
}

}  // namespace
