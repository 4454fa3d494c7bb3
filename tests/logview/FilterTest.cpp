#include "apps/log/Filter.h"

#include <gtest/gtest.h>

#include "tests/logview/Lines.h"

namespace {

using namespace velmora_log;
using velmora_test::heardAt;
using velmora_test::messageOf;

Line lineSaying(const std::string& text, int severity = 6) {
    return {messageOf(text, severity), heardAt, 1};
}

TEST(LogFilter, LetsEverythingPassAtFirst) {
    EXPECT_TRUE(Filter{}.passes(lineSaying("anything", 7), utc));
    EXPECT_TRUE(Filter{}.passes(Line{}, utc));
}

TEST(LogFilter, LevelLetsTheMoreSeverePass) {
    Filter filter;
    filter.level = 4;
    EXPECT_TRUE(filter.passes(lineSaying("x", 3), utc));
    EXPECT_TRUE(filter.passes(lineSaying("x", 4), utc));
    EXPECT_FALSE(filter.passes(lineSaying("x", 5), utc));
    EXPECT_FALSE(filter.passes(lineSaying("x", 6), utc));
    EXPECT_TRUE(filter.passes({readMessage("of nobody's form"), heardAt, 1}, utc))
        << "who tells no severity may have something to say";
}

TEST(LogFilter, WordsHaveToBeThereAllAndOthersNotAtAll) {
    Filter filter;
    filter.words = {"over TIME", "15"};
    EXPECT_TRUE(filter.passes(lineSaying("over time 1500"), utc));
    EXPECT_FALSE(filter.passes(lineSaying("over time 1400"), utc));
    filter.without = {"profile"};
    EXPECT_TRUE(filter.passes(lineSaying("over time 1500"), utc));
    EXPECT_FALSE(filter.passes(lineSaying("over time change Profile 15"), utc));
    filter = {};
    filter.words = {""};
    EXPECT_TRUE(filter.passes(lineSaying(""), utc)) << "nothing is in everything";
}

TEST(LogFilter, PatternIsFoundAnywhere) {
    std::string error;
    Filter filter;
    filter.pattern = Pattern::read("^over time [0-9]{4,} ", error);
    ASSERT_TRUE(filter.pattern) << error;
    EXPECT_TRUE(filter.passes(lineSaying("over time 1381 291 1381 10"), utc));
    EXPECT_FALSE(filter.passes(lineSaying("over time 381 291 1381 10"), utc));
    EXPECT_FALSE(filter.passes(lineSaying("so over time 1381 2"), utc));
    filter.pattern = Pattern::read("a|[0-9]$", error);
    EXPECT_TRUE(filter.passes(lineSaying("bab"), utc));
    EXPECT_TRUE(filter.passes(lineSaying("\n7"), utc));
    EXPECT_FALSE(filter.passes(lineSaying("7b"), utc));
    filter.pattern = Pattern::read("", error);
    EXPECT_TRUE(filter.passes(lineSaying(""), utc));
}

TEST(LogFilter, PatternThatIsNoneSaysSo) {
    for (const char* text : {"(", "[a", "a{3,1}", "*", "(a)\\1", "a)(b"}) {
        std::string error;
        EXPECT_FALSE(Pattern::read(text, error)) << text;
        EXPECT_NE(error, "") << text;
    }
}

// A way of matching that goes deeper with each character would end the program here, one that
// tries every division would not come to an end.
TEST(LogFilter, PatternsStayBoundedOnLongTexts) {
    std::string error;
    const auto nested = Pattern::read("((a|b|ab)*)*c", error);
    ASSERT_TRUE(nested) << error;
    EXPECT_FALSE(nested->isIn(std::string(60'000, 'a')));
    EXPECT_TRUE(nested->isIn("c" + std::string(60'000, 'a')));
    EXPECT_FALSE(nested->isIn(std::string(Pattern::longest, 'a') + "c")) << "what lies beyond";
}

// ---- time ----

TEST(LogFilter, TimesAreBoundsThatAreIncluded) {
    struct Case {
        const char *since, *until;
        bool passes;
        const char* why;
    };
    const Case cases[] = {
        {"17:02", nullptr, true, "within the minute named"},
        {"17:03", nullptr, false, "a minute too early"},
        {nullptr, "17:02", true, "the minute named is included"},
        {nullptr, "17:01", false, "a minute too late"},
        {nullptr, "17:02:09", true, "the second named is included"},
        {nullptr, "17:02:08", false, "a second too late"},
        {"17:02:09.4", "17:02:09.4", true, "the tenth named is included"},
        {"17:02:09.5", nullptr, false, "a tenth too early"},
        {"17:02:09.412345", "17:02:09.412345", true, "to the microsecond"},
        {"17:02:09.412346", nullptr, false, "a microsecond too early"},
        {"03-05 17:00", "03-05 18:00", true, "of that day"},
        {"03-06 00:00", nullptr, false, "the day before"},
        {nullptr, "03-04 23:59", false, "the day behind"},
        {"2026-03-05 17:02", "2026-03-05T17:02", true, "of that year"},
        {"2027-01-01 00:00", nullptr, false, "the year before"},
        {"2025-12-31 23:59", nullptr, true, "the year behind"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Filter filter;
        if (c.since) filter.since = TimeMark::read(c.since);
        if (c.until) filter.until = TimeMark::read(c.until);
        ASSERT_TRUE(filter.since || filter.until);
        EXPECT_EQ(filter.passes(lineSaying("x"), utc), c.passes);
    }
}

TEST(LogFilter, TimeIsTheLinesOwnWhereNobodyNotedAnother) {
    Filter filter;
    filter.since = TimeMark::read("2027-03-05 17:02:09");
    const Line line{messageOf("x"), std::nullopt, 0};
    EXPECT_TRUE(filter.passes(line, utc)) << "its stamp has no year to compare";
    filter.since = TimeMark::read("17:02:10");
    EXPECT_FALSE(filter.passes(line, utc));
    EXPECT_TRUE(filter.passes(Line{readMessage("x"), std::nullopt, 0}, utc)) << "without any time";
}

TEST(LogFilter, TimesThatAreNoneAreRefused) {
    for (const char* text :
         {"", "17", "17:2", "24:00", "17:60", "17:02:61", "17:02:09.", "17:02:09.1234567", "17:02 ",
          "02-30 17:02", "13-01 17:02", "2026-02-29 17:02", "03-05", "03-05 ", "-03-05 17:02",
          "soon", "17:02Z", "1:02"}) {
        EXPECT_FALSE(TimeMark::read(text)) << text;
    }
}

TEST(LogTime, IsWrittenAndReadInTheFormOfIso) {
    EXPECT_EQ(isoText(heardAt), "2026-03-05T17:02:09.412345Z");
    EXPECT_EQ(isoText(0), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(isoText(-1), "1969-12-31T23:59:59.999999Z");
    for (const std::int64_t time : {heardAt, std::int64_t{0}, std::int64_t{-1}}) {
        EXPECT_EQ(readIso(isoText(time)), time);
    }
    EXPECT_EQ(readIso("2026-03-05T17:02:09Z"), heardAt - 412'345);
    for (const char* text : {"", "2026-03-05T17:02:09.412345", "2026-02-30T17:02:09.4Z",
                             "2026-03-05 17:02:09Z", "2026-03-05T17:02:09.Z"}) {
        EXPECT_FALSE(readIso(text)) << text;
    }
}

TEST(LogTime, OfTheSystemsZoneKeepsMinutesOfTheYear) {
    const Moment local = systemZone(heardAt);
    EXPECT_EQ(local.micros, 412'345);
    EXPECT_EQ(local.second, 9);
    EXPECT_EQ(local.year, 2026);
}

}  // namespace
