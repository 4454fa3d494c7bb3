#include "apps/log/Message.h"

#include <gtest/gtest.h>

#include "apps/log/Severity.h"
#include "tests/logview/Lines.h"

namespace {

using namespace velmora_log;
using velmora_test::header;
using velmora_test::traceOf;

TEST(LogMessage, OfTheDriverIsReadInAllItsParts) {
    const Message m = readMessage("<134>Mar 05 17:02:09 localhost start SPEED=44100");
    EXPECT_EQ(m.priority, 134);
    EXPECT_EQ(m.severity(), 6);
    EXPECT_EQ(m.stamp, (Stamp{3, 5, 17, 2, 9}));
    EXPECT_EQ(m.host, "localhost");
    EXPECT_EQ(m.text, "start SPEED=44100");
    EXPECT_FALSE(m.isTrace());
}

TEST(LogMessage, KeepsBlanksAndBytesOfItsText) {
    EXPECT_EQ(readMessage(header + "   timeout 1000000").text, "   timeout 1000000");
    EXPECT_EQ(readMessage(header + "buffer Final ").text, "buffer Final ");
    EXPECT_EQ(readMessage(header + "a\xff\x1b\n" + std::string(1, '\0')).text,
              "a\xff\x1b\n" + std::string(1, '\0'));
    EXPECT_EQ(readMessage(header).text, "") << "a line may be empty";
    EXPECT_EQ(readMessage(header).host, "localhost");
}

// With two digits the datagram has one byte too many; with one and three it has not.
TEST(LogMessage, LosesTheNulThatTwoDigitsBring) {
    const std::string rest = std::string("Jan 01 00:00:05 localhost abc") + '\0';
    EXPECT_EQ(readMessage("<42>" + rest).text, "abc");
    EXPECT_EQ(readMessage("<42>" + rest).severity(), 2);
    EXPECT_EQ(readMessage("<7>" + rest).text, std::string("abc") + '\0');
    EXPECT_EQ(readMessage("<134>" + rest).text, std::string("abc") + '\0');
}

TEST(LogMessage, ThatIsCutIsReadAsFarAsItGoes) {
    const std::string whole = "<134>Mar 05 17:02:09 localhost start";
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        const Message m = readMessage(whole.substr(0, size));
        EXPECT_EQ(m.priority.has_value(), size >= 5);
        EXPECT_EQ(m.stamp.has_value(), size >= 21);
        EXPECT_EQ(m.host, size >= 31 ? "localhost" : "");
        EXPECT_EQ(m.text.size(), size >= 31   ? size - 31
                                 : size >= 21 ? size - 21
                                 : size >= 5  ? size - 5
                                              : size);
    }
}

TEST(LogMessage, OfSomebodyElseIsATextWithoutTheRest) {
    struct Case {
        const char* why;
        std::string datagram;
        int priority;  // -1: none
        bool hasStamp;
        std::string host, text;
    };
    const Case cases[] = {
        {"no syslog at all", "hello", -1, false, "", "hello"},
        {"nothing", "", -1, false, "", ""},
        {"a priority alone", "<13>", 13, false, "", ""},
        {"a priority of a later syslog", "<165>1 2026-03-05T17:02:09Z host app - - - x", 165, false,
         "", "1 2026-03-05T17:02:09Z host app - - - x"},
        {"a priority above what its byte holds", "<256>a", -1, false, "", "<256>a"},
        {"the largest priority", "<255>a", 255, false, "", "a"},
        {"priority 0", "<0>a", 0, false, "", "a"},
        {"leading zeros", "<007>a", -1, false, "", "<007>a"},
        {"no digits", "<>a", -1, false, "", "<>a"},
        {"no number", "<1x>a", -1, false, "", "<1x>a"},
        {"four digits", "<1340>a", -1, false, "", "<1340>a"},
        {"a day as RFC 3164 has it", "<13>Mar  5 17:02:09 box su: hi", 13, true, "box", "su: hi"},
        {"no such month", "<13>Mer 05 17:02:09 box hi", 13, false, "", "Mer 05 17:02:09 box hi"},
        {"no such hour", "<13>Mar 05 24:02:09 box hi", 13, false, "", "Mar 05 24:02:09 box hi"},
        {"no such day", "<13>Mar 00 17:02:09 box hi", 13, false, "", "Mar 00 17:02:09 box hi"},
        {"no host", "<13>Mar 05 17:02:09  hi", 13, true, "", " hi"},
        {"a host that a line ends", "<13>Mar 05 17:02:09 box\n hi", 13, true, "", "box\n hi"},
        {"a host without an end", "<13>Mar 05 17:02:09 box", 13, true, "", "box"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const Message m = readMessage(c.datagram);
        EXPECT_EQ(m.priority ? *m.priority : -1, c.priority);
        EXPECT_EQ(m.stamp.has_value(), c.hasStamp);
        EXPECT_EQ(m.host, c.host);
        EXPECT_EQ(m.text, c.text);
    }
}

TEST(LogMessage, StampsComeOutAsTheyWentIn) {
    for (const char* text : {"Jan 01 00:00:05", "Dec 31 23:59:60", "Mar 05 17:02:09"}) {
        ASSERT_TRUE(readStamp(text)) << text;
        EXPECT_EQ(stampText(*readStamp(text)), text);
    }
}

TEST(LogSeverity, IsKnownByNameAndByNumber) {
    EXPECT_EQ(readSeverity("error"), 3);
    EXPECT_EQ(readSeverity("err"), 3);
    EXPECT_EQ(readSeverity("warn"), 4);
    EXPECT_EQ(readSeverity("7"), 7);
    EXPECT_EQ(readSeverity("8"), std::nullopt);
    EXPECT_EQ(readSeverity(""), std::nullopt);
    EXPECT_EQ(readSeverity("info "), std::nullopt);
    EXPECT_EQ(severityName(4), "warning");
}

// ---- the packet trace ----

TEST(LogTrace, IsReadFromAWholeRecord) {
    const Message m = readMessage(header + traceOf({{0xffff'ff00, 450}, {0x10, 98}}));
    ASSERT_TRUE(m.isTrace());
    EXPECT_EQ(m.trace, (std::vector<SentPacket>{{0xffff'ff00, 450}, {0x10, 98}}));
    EXPECT_EQ(m.text, "");
    EXPECT_EQ(m.severity(), 6);
}

// Written by hand: 2 pairs, at 1001 and 2003 µs, 442 and 450 bytes.
TEST(LogTrace, IsReadFromTheBytesOfTheDocument) {
    std::string bytes(
        "\x00\x00\x02\x01\xe9\x03\x00\x00\xba\x01\x00\x00"
        "\xd3\x07\x00\x00\xc2\x01\x00\x00",
        20);
    bytes.resize(1412, '\0');
    EXPECT_EQ(readTrace(bytes), (std::vector<SentPacket>{{1001, 442}, {2003, 450}}));
}

TEST(LogTrace, HoldsUpTo176Packets) {
    const std::vector<SentPacket> most(176, {1, 2});
    EXPECT_EQ(readTrace(traceOf(most)), most);
    std::string more = traceOf(most);
    more[2] = static_cast<char>(177);
    EXPECT_FALSE(readTrace(more));
}

TEST(LogTrace, ThatIsNotWholeIsAText) {
    const std::string whole = traceOf({{1, 2}, {3, 4}});
    struct Case {
        const char* why;
        std::string text;
    };
    std::string none = whole, other = whole, high = whole, behind = whole;
    none[2] = 0;
    other[3] = 2;
    high[0] = 1;
    behind[1411] = 1;
    const Case cases[] = {{"cut by a byte", whole.substr(0, 1411)},
                          {"a byte too long", whole + '\0'},
                          {"no pairs", none},
                          {"another mark", other},
                          {"bits where none are", high},
                          {"something behind the pairs", behind},
                          {"nothing", ""}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const Message m = readMessage(header + c.text);
        EXPECT_FALSE(m.isTrace());
        EXPECT_EQ(m.text, c.text);
    }
}

}  // namespace
