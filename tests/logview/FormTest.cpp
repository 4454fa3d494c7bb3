// A line on the screen, as JSON, and out of files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/log/LineJson.h"
#include "apps/log/LineText.h"
#include "apps/log/LogFile.h"
#include "base/Printable.h"
#include "tests/logview/Lines.h"

namespace {

using namespace velmora_log;
using testing::HasSubstr;
using testing::Not;
using velmora_test::header;
using velmora_test::heardAt;
using velmora_test::messageOf;
using velmora_test::traceOf;

// ---- the screen ----

TEST(LogLineText, TellsWhenHowSevereAndWhat) {
    const Line line{messageOf("over time 1381 291 1381 10", 4), heardAt, 1};
    EXPECT_EQ(lineText(line, utc, {}), "17:02:09.412  warning  over time 1381 291 1381 10");
    EXPECT_EQ(lineText(line, utc, {false, 2}),
              "17:02:09.412  warning  [2] over time 1381 291 1381 10");
    EXPECT_EQ(lineText({line.message, std::nullopt, 0}, utc, {}),
              "Mar 05 17:02:09  warning  over time 1381 291 1381 10");
    EXPECT_EQ(lineText({readMessage("hello"), std::nullopt, 0}, utc, {}), "-  -        hello");
}

TEST(LogLineText, SaysWhereTheLinesOwnTimeIsAnother) {
    Line line{messageOf("x"), heardAt, 1};
    line.message.stamp = Stamp{3, 5, 17, 2, 8};
    EXPECT_EQ(lineText(line, utc, {}), "17:02:09.412  info     x") << "a second may pass";
    line.message.stamp = Stamp{3, 5, 16, 58, 0};
    EXPECT_EQ(lineText(line, utc, {}), "17:02:09.412 (says Mar 05 16:58:00)  info     x");
}

TEST(LogLineText, NamesAHostThatIsNotTheDrivers) {
    EXPECT_EQ(lineText({readMessage("<13>Mar 05 17:02:09 b\x1bx hi"), std::nullopt, 0}, utc, {}),
              "Mar 05 17:02:09  notice   b\\x1bx: hi");
}

TEST(LogLineText, LetsNoByteThroughThatATerminalObeys) {
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    all += "\u202e\u009b31m";
    const std::string text = lineText({messageOf(all), heardAt, 1}, utc, {});
    EXPECT_TRUE(ZENNO::isPrintable(text)) << text;
    EXPECT_THAT(text, HasSubstr("\\x1b"));
    EXPECT_THAT(text, HasSubstr("\\xff"));
    EXPECT_THAT(text, HasSubstr("\\u{202e}"));
}

TEST(LogLineText, IsColouredByItsSeverity) {
    const auto coloured = [](int severity) {
        return lineText({messageOf("x", severity), heardAt, 1}, utc, {true, 0});
    };
    EXPECT_THAT(coloured(3), HasSubstr("\x1b[1;31merror    x\x1b[0m"));
    EXPECT_THAT(coloured(4), HasSubstr("\x1b[33mwarning  x\x1b[0m"));
    EXPECT_THAT(coloured(6), HasSubstr("  info     x"));
    EXPECT_THAT(coloured(7), HasSubstr("\x1b[2mdebug    x\x1b[0m"));
    EXPECT_THAT(lineText({messageOf("x", 3), heardAt, 1}, utc, {}), Not(HasSubstr("\x1b")));
}

TEST(LogLineText, SumsUpATrace) {
    const Line line{messageOf(traceOf({{0xffff'fff0, 442}, {0x10, 450}})), heardAt, 1};
    EXPECT_EQ(lineText(line, utc, {}),
              "17:02:09.412  info     packet trace: 2 packets in 0.0 ms, 892 bytes");
}

// ---- JSON ----

TEST(LogLineJson, TellsEverythingThatIsKnown) {
    EXPECT_EQ(lineJson({messageOf("start SPEED=44100"), heardAt, 51234}).dump(),
              R"({"event":"line","heard":"2026-03-05T17:02:09.412345Z","port":51234,"facility":16,)"
              R"("severity":6,"level":"info","time":"Mar 05 17:02:09","host":"localhost",)"
              R"("text":"start SPEED=44100"})");
    EXPECT_EQ(lineJson({readMessage("hello"), std::nullopt, 0}).dump(),
              R"({"event":"line","text":"hello"})");
}

TEST(LogLineJson, KeepsBytesThatAreNotPrintable) {
    const Json json = lineJson({messageOf("a\x1b\xff"), heardAt, 1});
    EXPECT_EQ(json["text"], "a\\x1b\\xff");
    EXPECT_EQ(json["textBytes"], "611bff");
    EXPECT_FALSE(lineJson({messageOf("a\\x1b"), heardAt, 1}).contains("textBytes"));
}

TEST(LogLineJson, ComesBackAsTheLineThatItWas) {
    const Line lines[] = {
        {messageOf("start"), heardAt, 51234},
        {messageOf("a\x1b\xff\n" + std::string(1, '\0')), heardAt, 1},
        {messageOf("a\\x1b"), std::nullopt, 0},
        {messageOf(traceOf({{0xffff'ffff, 0xffff'ffff}, {0, 0}})), heardAt, 1},
        {readMessage("<255>a"), heardAt, 65535},
        {readMessage("<13>Mar 05 17:02:09 b\x1bx hi"), heardAt, 1},
        {readMessage(""), std::nullopt, 0},
    };
    for (const Line& line : lines) {
        const std::string text = lineJson(line).dump();
        SCOPED_TRACE(text);
        EXPECT_EQ(lineOf(Json::parse(text)), line);
    }
}

TEST(LogLineJson, ThatNoLineCanHaveIsRefused) {
    const char* const cases[] = {
        R"([])",
        R"({})",
        R"({"event":"figures"})",
        R"({"event":7})",
        R"({"event":"line","port":65536})",
        R"({"event":"line","port":-1})",
        R"({"event":"line","port":"1"})",
        R"({"event":"line","facility":16})",
        R"({"event":"line","severity":6})",
        R"({"event":"line","facility":32,"severity":6})",
        R"({"event":"line","facility":16,"severity":8})",
        R"({"event":"line","heard":"yesterday"})",
        R"({"event":"line","heard":5})",
        R"({"event":"line","time":"Mer 05 17:02:09"})",
        R"({"event":"line","text":5})",
        R"({"event":"line","textBytes":"6"})",
        R"({"event":"line","textBytes":"6g"})",
        R"({"event":"line","trace":[]})",
        R"({"event":"line","trace":5})",
        R"({"event":"line","trace":[[1]]})",
        R"({"event":"line","trace":[[1,4294967296]]})",
        R"({"event":"line","trace":[[1,-2]]})",
        R"({"event":"line","trace":[[1,2.5]]})",
    };
    for (const char* text : cases) EXPECT_FALSE(lineOf(Json::parse(text))) << text;
    Json many = {{"event", "line"}};
    for (int i = 0; i < 177; ++i) many["trace"].push_back(Json::array({1, 2}));
    EXPECT_FALSE(lineOf(many));
}

// ---- files ----

// All lines of `bytes`, fed in pieces of `atOnce`.
std::vector<Line> readAll(const std::string& bytes, std::size_t atOnce,
                          std::uint64_t unreadable = 0) {
    LogFile file;
    std::vector<Line> lines;
    for (std::size_t at = 0; at < bytes.size(); at += atOnce) {
        file.feed(std::string_view(bytes).substr(at, atOnce));
        while (const auto line = file.next(/*isEnd=*/false)) lines.push_back(*line);
    }
    while (const auto line = file.next(/*isEnd=*/true)) lines.push_back(*line);
    EXPECT_EQ(file.unreadable(), unreadable);
    return lines;
}

TEST(LogFile, GivesBackWhatWasWrittenHoweverItComes) {
    // A trace with newlines in its times, as most have some.
    const std::string trace = traceOf({{0x0a0a'0a0a, 10}, {0x0a0a'0a0b, 0x0a0a}});
    const std::vector<std::string> datagrams = {header + "start SPEED=44100",
                                                header + trace,
                                                header,
                                                header + "ab",
                                                header + trace,
                                                "somebody else",
                                                header + "x\r",
                                                "<134>Mar 05",
                                                header + "last"};
    std::string raw, objects;
    std::vector<Line> expected;
    for (const std::string& datagram : datagrams) {
        expected.push_back({readMessage(datagram), std::nullopt, 0});
        raw += datagram + '\n';
        objects += lineJson(expected.back()).dump() + '\n';
    }
    for (const std::size_t atOnce : {1u, 7u, 1000u, 100'000u}) {
        SCOPED_TRACE(atOnce);
        EXPECT_EQ(readAll(raw, atOnce), expected);
        EXPECT_EQ(readAll(objects, atOnce), expected);
        EXPECT_EQ(readAll(raw.substr(0, raw.size() - 1), atOnce), expected) << "no newline at last";
        EXPECT_EQ(readAll(objects.substr(0, objects.size() - 1), atOnce), expected);
        EXPECT_EQ(readAll(raw.substr(0, 49) + objects, atOnce).size(), expected.size() + 1);
    }
    EXPECT_TRUE(readAll("", 1).empty());
    EXPECT_TRUE(readAll("\n\n\n", 1).empty());
}

TEST(LogFile, GivesALineAsSoonAsItIsThere) {
    LogFile file;
    file.feed(header + "a\n");
    ASSERT_TRUE(file.next(false)) << "a text too short to be told from a trace by its length";
    file.feed(header + traceOf({{1, 2}}));
    EXPECT_FALSE(file.next(false));
    file.feed("\n");
    EXPECT_TRUE(file.next(false));
}

TEST(LogFile, WhoseTraceIsCutStillGivesTheRest) {
    const std::string trace = traceOf({{1, 2}});
    const auto lines = readAll(header + trace.substr(0, 700), 100);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_FALSE(lines[0].message.isTrace());
    EXPECT_EQ(lines[0].message.text.size(), 700u);
    // Something else where its end should be.
    EXPECT_EQ(
        readAll(header + trace.substr(0, 700) + "\n" + header + std::string(2000, 'x') + "\n", 100)
            .size(),
        2u);
}

TEST(LogFile, PassesOverWhatIsUnreadable) {
    const std::string good = lineJson({messageOf("x"), heardAt, 1}).dump() + "\n";
    EXPECT_EQ(readAll(good + good.substr(0, 30), 9, 1).size(), 1u) << "a last line that was cut";
    EXPECT_EQ(readAll("{\"event\":\"line\",\"port\":-1}\n" + good, 9, 1).size(), 1u);
    EXPECT_EQ(readAll("{\"event\":\"line\",\"event\":5}\n" + good, 9, 1).size(), 1u);
    EXPECT_EQ(readAll("{\"event\":\"figures\",\"lines\":3}\n" + good, 9, 0).size(), 1u)
        << "what a redirected output has besides";
    EXPECT_EQ(readAll("{ is how this text begins\n", 9, 0).size(), 1u);
}

TEST(LogFile, WithoutAnyNewlineStaysBounded) {
    const auto lines = readAll(std::string((1 << 20) * 2 + 5, 'x'), 1 << 16);
    EXPECT_EQ(lines.size(), 3u);
}

}  // namespace
