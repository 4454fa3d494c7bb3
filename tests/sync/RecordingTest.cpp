// Streams of every kind, and what they have always sent and said: tests/sync/recordings.txt.
//
// A change that is meant to alter nothing leaves this green. Where one is meant to be seen, look at
// what changed, and then record anew:
//
//   VELMORA_RECORD=1 test_sync --gtest_filter='Recording.*' |
//       sed -n '/^R"record/,/^)record/p' >/tmp/new && cp /tmp/new tests/sync/recordings.txt
//
// The name of a script in the place of the 1 prints each of its datagrams and lines, for a diff
// between two builds.
//
// How often the clock is read, how the socket is switched and who calls what is no part of it. Of
// the transfers by random cycles those are here whose first row is another: their generator starts
// from its standard seed.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "tests/sync/RecordingStage.h"

namespace {

using namespace velmora_test;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char recordedText[] =
#include "tests/sync/recordings.txt"
    ;

std::vector<Script> everyScript() {
    Scripts out;
    for (const auto add : {addTransfers, addConversions, addFeedback, addResends, addLateness,
                           addEnds, addRings, addModes, addSessions, addWeather}) {
        add(out);
    }
    return out.all;
}

Take playAt(int logLevel, const Script& script) {
    Take take(logLevel);
    script.play(take);
    return take;
}

std::string askedFor() {
    const char* const value = std::getenv("VELMORA_RECORD");
    return value == nullptr ? std::string() : value;
}

TEST(Recording, EveryScriptSendsAndSaysWhatItAlwaysDid) {
    const std::string asked = askedFor();
    auto recorded = readRecordings(recordedText);
    if (asked == "1") std::printf("R\"recorded(\n");
    for (const Script& script : everyScript()) {
        const Take take = playAt(6, script);
        if (asked == "1") std::printf("%s", recordingText(script.name, take).c_str());
        if (asked == script.name) {
            std::printf("%s%s", take.sent.shown(0, take.sent.count()).c_str(),
                        take.said.shown(0, take.said.count()).c_str());
        }
        if (asked.empty()) {
            EXPECT_TRUE(recorded.contains(script.name)) << script.name << " is not recorded";
            const Recorded before = recorded[script.name];
            EXPECT_EQ(take.sent.firstDifference(before.sent), "") << script.name << ", datagrams";
            EXPECT_EQ(take.said.firstDifference(before.said), "") << script.name << ", log";
        }
        recorded.erase(script.name);
    }
    if (asked == "1") std::printf(")recorded\"\n");
    if (!asked.empty()) GTEST_SKIP() << "recorded, not compared";
    for (const auto& [name, digest] : recorded) ADD_FAILURE() << name << " is no script";
}

TEST(Recording, TheLogChangesNoDatagram) {
    if (!askedFor().empty()) GTEST_SKIP() << "recorded, not compared";
    auto recorded = readRecordings(recordedText);
    for (const Script& script : everyScript()) {
        if (script.hearsTheLog) continue;
        const Take quiet = playAt(-1, script);
        EXPECT_EQ(quiet.sent.firstDifference(recorded[script.name].sent), "") << script.name;
    }
}

TEST(Recording, TellsWhereAChangeBegins) {
    const auto takeOf = [](std::uint64_t changed) {
        Take take(6);
        for (std::uint64_t i = 1; i <= 100; ++i) {
            Datagram d;
            d.time = i == changed ? 1000 : i;
            d.data = datagram(10, 0, {static_cast<std::uint16_t>(i)});
            take.addDatagram(d);
            take.addLine(6, "line " + std::to_string(i));
        }
        return take;
    };
    const Take before = takeOf(0);
    const std::string text = recordingText("a", before) + recordingText("b", takeOf(100));
    const auto recorded = readRecordings(text);
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded.at("a").sent, before.sent.digest());
    EXPECT_EQ(recorded.at("a").said, before.said.digest());
    EXPECT_THAT(before.sent.firstDifference(recorded.at("a").sent), IsEmpty());
    EXPECT_THAT(takeOf(1).sent.firstDifference(recorded.at("a").sent), HasSubstr("1 to 16 "));
    EXPECT_THAT(takeOf(33).sent.firstDifference(recorded.at("a").sent), HasSubstr("33 to 48 "));
    EXPECT_THAT(before.sent.firstDifference(recorded.at("b").sent), HasSubstr("97 to 112 "));
    Take longer = takeOf(0);
    longer.addLine(4, "line 101");
    EXPECT_THAT(longer.said.firstDifference(recorded.at("a").said),
                testing::AllOf(HasSubstr("(100 before, 101 now)"), HasSubstr("101 4 line 101\n")));
}

}  // namespace
