#include "base/Number.h"

#include <gtest/gtest.h>

#include <limits>

using ZENNO::readInteger;

TEST(Number, ReadsAsTheLibraryDoes) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    struct Case {
        const char* why;
        std::string_view text;
        std::int64_t number;
    };
    const Case cases[] = {
        {"nothing", "", 0},
        {"blanks alone", "  ", 0},
        {"a number", "42", 42},
        {"leading zeros", "0010", 10},
        {"a minus", "-42", -42},
        {"a plus", "+42", 42},
        {"a sign alone", "-", 0},
        {"two signs", "+-1", 0},
        {"white space in front", " \t\n\v\f\r7", 7},
        {"a blank behind the sign", "- 7", 0},
        {"what follows is nothing", "12ms", 12},
        {"no other base", "0x10", 0},
        {"a fraction", "1.9", 1},
        {"a word", "enable", 0},
        {"the largest", "9223372036854775807", most},
        {"larger than that", "9223372036854775808", most},
        {"far larger", "99999999999999999999999", most},
        {"the least", "-9223372036854775808", least},
        {"less than that", "-9223372036854775809", least},
        {"a part of a longer text", std::string_view("12345", 3), 123},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(readInteger(c.text), c.number);
    }
}
