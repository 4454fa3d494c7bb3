// The message that a record becomes: where it starts, how long it is, what the clock writes in.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "base/Log.h"
#include "platform/Time.h"

namespace {

using namespace ZENNO;

constexpr platform::LocalTime march{2, 5, 17, 2, 9};

LogRecord recordOf(std::uint8_t priority, std::string_view text) {
    LogRecord record;
    record.priority = priority;
    const std::string whole = "<000>MMM DD hh mm ss localhost " + std::string(text);
    std::memcpy(record.text, whole.c_str(), whole.size() + 1);
    record.length = whole.size();
    return record;
}

TEST(LogStamp, MessageByPriority) {
    using std::string_view_literals::operator""sv;
    const struct {
        const char* why;
        std::uint8_t priority;
        std::ptrdiff_t start;
        std::string_view datagram;
    } cases[] = {
        {"three digits: the usual", 134, 0, "<134>Mar 05 17:02:09 localhost play 2"sv},
        {"the lowest of three digits", 100, 0, "<100>Mar 05 17:02:09 localhost play 2"sv},
        {"the highest", 255, 0, "<255>Mar 05 17:02:09 localhost play 2"sv},
        {"one digit: two bytes less", 7, 2, "<7>Mar 05 17:02:09 localhost play 2"sv},
        {"the highest of one digit", 9, 2, "<9>Mar 05 17:02:09 localhost play 2"sv},
        {"none at all is a digit", 0, 2, "<0>Mar 05 17:02:09 localhost play 2"sv},
        {"two digits: the closing NUL goes along", 42, 1,
         "<42>Mar 05 17:02:09 localhost play 2\0"sv},
        {"the lowest of two digits", 10, 1, "<10>Mar 05 17:02:09 localhost play 2\0"sv},
        {"the highest of two digits", 99, 1, "<99>Mar 05 17:02:09 localhost play 2\0"sv},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        LogRecord record = recordOf(c.priority, "play 2");
        const LogMessage message = stampRecord(record, march);
        EXPECT_EQ(message.start - record.text, c.start);
        EXPECT_EQ(std::string_view(message.start, message.size), c.datagram);
        EXPECT_EQ(message.size, record.length - (c.priority < 10 ? 2 : 0));
    }
}

TEST(LogStamp, TimeOfDay) {
    const struct {
        const char* why;
        platform::LocalTime time;
        const char* stamp;
    } cases[] = {
        {"the year's first day keeps its zeros", {0, 1, 0, 0, 5}, "Jan 01 00:00:05"},
        {"February", {1, 28, 1, 2, 3}, "Feb 28 01:02:03"},
        {"March", {2, 5, 17, 2, 9}, "Mar 05 17:02:09"},
        {"April", {3, 30, 10, 10, 10}, "Apr 30 10:10:10"},
        {"May", {4, 9, 9, 9, 9}, "May 09 09:09:09"},
        {"June", {5, 10, 20, 0, 59}, "Jun 10 20:00:59"},
        {"July", {6, 4, 12, 30, 0}, "Jul 04 12:30:00"},
        {"August", {7, 15, 6, 45, 15}, "Aug 15 06:45:15"},
        {"September", {8, 22, 22, 22, 22}, "Sep 22 22:22:22"},
        {"October", {9, 31, 2, 59, 59}, "Oct 31 02:59:59"},
        {"November", {10, 11, 11, 11, 11}, "Nov 11 11:11:11"},
        {"the year's last second", {11, 31, 23, 59, 59}, "Dec 31 23:59:59"},
        {"a leap second", {11, 31, 23, 59, 60}, "Dec 31 23:59:60"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        LogRecord record = recordOf(134, "x");
        const LogMessage message = stampRecord(record, c.time);
        EXPECT_EQ(std::string(message.start + 5, 15), c.stamp);
        EXPECT_EQ(std::string(message.start + 20), " localhost x");
    }
}

TEST(LogStamp, BytesOfTheMessageAreNotLookedAt) {
    using std::string_view_literals::operator""sv;
    LogRecord record = recordOf(134, "\0\1\0\2"sv);
    record.length = 31 + 4;
    const LogMessage message = stampRecord(record, march);
    EXPECT_EQ(std::string_view(message.start, message.size).substr(31), "\0\1\0\2"sv);
}

}  // namespace
