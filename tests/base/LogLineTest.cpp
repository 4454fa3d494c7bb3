#include "base/LogLine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/AllocationWatch.h"
#include "tests/support/LogCapture.h"

using namespace ZENNO;
using velmora_test::LogCapture;

namespace {

// Keeps the last record as the sink gets it.
class Keeper final : public LogSink {
public:
    explicit Keeper(int level)
        : levelBefore_(logLevel.exchange(level)), sinkBefore_(logger.exchange(this)) {}
    ~Keeper() override {
        logger = sinkBefore_;
        logLevel = levelBefore_;
    }
    void deliver(LogRecord& record) noexcept override {
        ++lines;
        last = record;
    }
    std::string message() const { return last.text + LogRecord::headerLength; }

    int lines = 0;
    LogRecord last{};

private:
    int levelBefore_;
    LogSink* sinkBefore_;
};

constexpr std::uint64_t room = LogRecord::capacity - LogRecord::headerLength;  // 2017

// Appends so much text in small pieces.
void fill(LogLine& line, std::uint64_t size) {
    for (std::uint64_t i = 0; i < size; ++i) line << "x";
}

}  // namespace

TEST(LogLine, LevelIsOffAtFirst) {
    EXPECT_EQ(logLevel, -1);
    EXPECT_EQ(logger, nullptr);
    EXPECT_FALSE(logLevelEnabled(0));
    EXPECT_TRUE(logLevelEnabled(-1));
}

TEST(LogLine, PassesUpToTheLevel) {
    struct Case {
        const char* why;
        int logLevel;
        std::uint8_t level;
        bool passes;
    };
    const Case cases[] = {
        {"off", -1, 0, false},
        {"off, detail", -1, 7, false},
        {"level 6 passes itself", 6, 6, true},
        {"level 6 passes errors", 6, 3, true},
        {"level 6 passes no detail", 6, 7, false},
        {"level 7 passes detail", 7, 7, true},
        {"level 0 passes level 0", 0, 0, true},
        {"level 0 passes nothing else", 0, 1, false},
        {"beyond every level", 100, 7, true},
        {"far below", std::numeric_limits<int>::min(), 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Keeper keeper(c.logLevel);
        { EXPECT_EQ(LogLine(c.level).passes(), c.passes); }
        EXPECT_EQ(keeper.lines, c.passes ? 1 : 0);
        EXPECT_EQ(logLevelEnabled(c.level), c.passes);
    }
}

TEST(LogLine, ThatDoesNotPassAllocatesNothingAndTakesNothing) {
    const std::string text = "text long enough to be kept outside of the string object";
    Keeper keeper(-1);
    const velmora_test::AllocationWatch heap;
    {
        LogLine line(3);
        line << "text" << text << std::string_view(text) << std::uint16_t{1} << 2u << -3
             << std::int64_t{-4} << std::uint64_t{5} << 6.0;
        EXPECT_FALSE(line.passes());
        LogLine(0, LogLine::Raw{}) << 1;
        LogLine(16, 0) << 1;
        LogLine(0, "text") << 1;
        LogLine(0, text) << 1;
    }
    EXPECT_EQ(heap.count(), 0u);
    EXPECT_EQ(keeper.lines, 0);
}

TEST(LogLine, ThatPassesAllocatesOnce) {
    Keeper keeper(7);
    const velmora_test::AllocationWatch heap;
    LogLine(6, "start ") << 1 << std::string_view(" x") << 2.5 << "text";
    EXPECT_EQ(heap.count(), 1u);
}

TEST(LogLine, StartsWithTheHeaderThatTheSinkFillsIn) {
    Keeper keeper(7);
    { LogLine line(6); }
    EXPECT_EQ(keeper.last.length, 31u);
    EXPECT_STREQ(keeper.last.text, "<000>MMM DD hh mm ss localhost ");
}

TEST(LogLine, FormsOpenWithTheirPriority) {
    Keeper keeper(7);
    struct Case {
        const char* why;
        std::uint32_t facility;
        void (*open)();
        int priority;
        const char* message;
    };
    const Case cases[] = {
        {"a level under facility 0", 0, [] { LogLine(6); }, 6, ""},
        {"a level under facility 16", 16, [] { LogLine(6); }, 134, ""},
        {"level 0", 16, [] { LogLine(0); }, 128, ""},
        {"a facility is kept in 8 bits", 35, [] { LogLine(3); }, (35 * 8 + 3) & 0xff, ""},
        {"a raw priority", 16, [] { LogLine(42, LogLine::Raw{}); }, 42, ""},
        {"facility and level", 5, [] { LogLine(16, 6); }, 134, ""},
        {"facility and level 0", 5, [] { LogLine(16, 0); }, 128, ""},
        {"facility 0 and level", 5, [] { LogLine(0, 6); }, 6, ""},
        {"facility and level in variables", 5,
         [] {
             const std::uint8_t facility = 1, level = 7;
             LogLine(facility, level) << "x";
         },
         15, "x"},
        {"a level and a literal", 16, [] { LogLine(6, "open"); }, 134, "open"},
        {"a level and a C text", 16,
         [] {
             const char* word = "word";
             LogLine(6, word);
         },
         134, "word"},
        {"a level and a string", 16, [] { LogLine(6, std::string("string")); }, 134, "string"},
        {"a level and a counted text", 16,
         [] { LogLine(6, std::string_view("counted", 5)) << "!"; }, 134, "count!"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        keeper.setFacility(c.facility);
        keeper.lines = 0;
        c.open();
        EXPECT_EQ(keeper.lines, 1);
        EXPECT_EQ(keeper.last.priority, c.priority);
        EXPECT_EQ(keeper.message(), c.message);
    }
}

TEST(LogLine, FacilityTakesNoPartInTheThreshold) {
    Keeper keeper(6);
    EXPECT_TRUE(LogLine(134, LogLine::Raw{}).passes());
    EXPECT_FALSE(LogLine(135, LogLine::Raw{}).passes());
    EXPECT_TRUE(LogLine(31, 6).passes());
    EXPECT_FALSE(LogLine(0, 7).passes());
}

TEST(LogLine, IsBuiltButSentNowhereWithoutALogger) {
    const int before = logLevel.exchange(7);
    ASSERT_EQ(logger, nullptr);
    {
        LogLine line(6);
        line << "to nobody";
        EXPECT_TRUE(line.passes());
    }
    logLevel = before;
}

TEST(LogLine, HasFacility0WhileThereIsNoLogger) {
    const int before = logLevel.exchange(7);
    {
        LogLine line(6);
        LogCapture capture;  // comes while the line is being built
        line << "late";
    }
    logLevel = before;

    Keeper keeper(7);
    keeper.setFacility(16);
    logger = nullptr;
    {
        LogLine line(6);
        logger = &keeper;
    }
    EXPECT_EQ(keeper.last.priority, 6);
}

TEST(LogLine, PrintsNumbersAndTexts) {
    struct Case {
        const char* why;
        void (*append)(LogLine&);
        const char* text;
    };
    const Case cases[] = {
        {"u16", [](LogLine& l) { l << std::uint16_t{65535}; }, "65535"},
        {"u32", [](LogLine& l) { l << std::uint32_t{4294967295u}; }, "4294967295"},
        {"i32", [](LogLine& l) { l << std::int32_t{-2147483647 - 1}; }, "-2147483648"},
        {"i64", [](LogLine& l) { l << std::numeric_limits<std::int64_t>::min(); },
         "-9223372036854775808"},
        {"u64", [](LogLine& l) { l << std::numeric_limits<std::uint64_t>::max(); },
         "18446744073709551615"},
        {"zero", [](LogLine& l) { l << 0; }, "0"},
        {"u8 is a number", [](LogLine& l) { l << std::uint8_t{65}; }, "65"},
        {"i16", [](LogLine& l) { l << std::int16_t{-1638}; }, "-1638"},
        {"long", [](LogLine& l) { l << -1L << "," << 1UL; }, "-1,1"},
        {"long long", [](LogLine& l) { l << -1LL << "," << 1ULL; }, "-1,1"},
        {"bool", [](LogLine& l) { l << true << false; }, "10"},
        {"size", [](LogLine& l) { l << sizeof(char); }, "1"},
        {"double", [](LogLine& l) { l << 44.1; }, "44.100000"},
        {"double, rounded", [](LogLine& l) { l << 2.0 / 3; }, "0.666667"},
        {"double, negative", [](LogLine& l) { l << -0.5; }, "-0.500000"},
        {"double, large", [](LogLine& l) { l << 1e15; }, "1000000000000000.000000"},
        {"float", [](LogLine& l) { l << 0.25f; }, "0.250000"},
        {"text", [](LogLine& l) { l << "text"; }, "text"},
        {"percent signs are text", [](LogLine& l) { l << "100% %s %n"; }, "100% %s %n"},
        {"an empty text", [](LogLine& l) { l << "" << std::string_view(); }, ""},
        {"no text", [](LogLine& l) { l << static_cast<const char*>(nullptr); }, ""},
        {"string", [](LogLine& l) { l << std::string("string"); }, "string"},
        {"a chain", [](LogLine& l) { l << "SPEED=" << 48000u << " ch " << 2; }, "SPEED=48000 ch 2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Keeper keeper(7);
        {
            LogLine line(6);
            c.append(line);
        }
        EXPECT_EQ(keeper.message(), c.text);
        EXPECT_EQ(keeper.last.length, LogRecord::headerLength + std::string(c.text).size());
    }
}

TEST(LogLine, PrintsDoublesAsTheLibraryDoes) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    Keeper keeper(7);
    const auto compare = [&](double value) {
        LogLine(6) << value;
        char expected[400];
        std::snprintf(expected, sizeof expected, "%f", value);
        EXPECT_EQ(keeper.message(), expected);
    };
    for (int n = 0; n < 200; ++n) {
        compare(std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 200) - 140));
    }
    compare(std::numeric_limits<double>::max());
    compare(-std::numeric_limits<double>::max());
    compare(std::numeric_limits<double>::infinity());
}

TEST(LogLine, CountedTextKeepsItsBytes) {
    Keeper keeper(7);
    LogLine(6) << std::string_view("a\0b", 3) << "c";
    EXPECT_EQ(keeper.last.length, LogRecord::headerLength + 4);
    EXPECT_EQ(std::string(keeper.last.text + LogRecord::headerLength, 4), std::string("a\0bc", 4));
}

TEST(LogLine, FormattedAppendsAreCutAtTheEnd) {
    Keeper keeper(7);
    {
        LogLine line(6);
        fill(line, room - 4);
        line << 123456;  // three digits and the NUL have room
        line << "more";
    }
    EXPECT_EQ(keeper.last.length, LogRecord::capacity - 1);
    EXPECT_EQ(keeper.message(), std::string(room - 4, 'x') + "123");

    LogLine(6) << std::string(5000, 'y').c_str() << 1u << 1.0;
    EXPECT_EQ(keeper.last.length, LogRecord::capacity - 1);
    EXPECT_EQ(keeper.message(), std::string(room - 1, 'y'));
}

TEST(LogLine, CountedTextIsWholeOrNothing) {
    struct Case {
        const char* why;
        std::uint64_t there, size;
        bool taken;
    };
    const Case cases[] = {
        {"size + 1 + length is 2047", 0, room - 2, true},
        {"size + 1 + length is 2048", 0, room - 1, false},
        {"behind something, 2047", 100, room - 102, true},
        {"behind something, 2048", 100, room - 101, false},
        {"far too long", 100, 5000, false},
        {"one byte into the last room", room - 3, 1, true},
        {"one byte too many", room - 2, 1, false},
        {"into a full record", room - 1, 1, false},
        {"nothing into a full record", room - 1, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Keeper keeper(7);
        {
            LogLine line(6);
            fill(line, c.there);
            line << std::string(c.size, 'y');
        }
        EXPECT_EQ(keeper.message(),
                  std::string(c.there, 'x') + (c.taken ? std::string(c.size, 'y') : std::string()));
    }
}

TEST(LogLine, APieceBehindADroppedOneIsTaken) {
    Keeper keeper(7);
    LogLine(6) << "early " << std::string(3000, 'y') << std::string("late");
    EXPECT_EQ(keeper.message(), "early late");
}

TEST(LogLine, IsBuiltOnManyThreadsAtOnce) {
    LogCapture capture(7);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i) LogLine(6) << "thread " << t << " line " << i;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(capture.lines().size(), 400u);
    EXPECT_EQ(capture.count("thread 3 line 99"), 1);
}
