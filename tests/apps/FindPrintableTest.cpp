// Texts from the network, made fit to be shown.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>

#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/Table.h"

namespace {

using namespace std::string_literals;
using velmora_find::columns;
using velmora_find::printable;

struct PrintableCase {
    const char* why;
    std::string raw, shown;
};
const PrintableCase printableCases[] = {
    {"nothing", "", ""},
    {"plain letters", "My DAC", "My DAC"},
    {"letters of many lands", "Küche 音楽 🎵", "Küche 音楽 🎵"},
    {"a terminal's escape", "\x1b[2J", "\\x1b[2J"},
    {"NUL", "a\0b"s, "a\\x00b"},
    {"a line end", "a\r\nb", "a\\x0d\\x0ab"},
    {"a tab", "a\tb", "a\\x09b"},
    {"DEL", "\x7f", "\\x7f"},
    {"the last plain character", "~", "~"},
    {"a C1 character in two bytes", "\xc2\x9b[2J", "\\u{9b}[2J"},
    {"the first and the last of C1", "\xc2\x80\xc2\x9f", "\\u{80}\\u{9f}"},
    {"the character behind C1", "\xc2\xa0", "\xc2\xa0"},
    {"a C1 character in one byte, which is no UTF-8", "\x9b", "\\x9b"},
    {"a lone lead byte", "a\xc3", "a\\xc3"},
    {"a lead byte before a letter", "\xc3(", "\\xc3("},
    {"a cut character of three", "\xe2\x82", "\\xe2\\x82"},
    {"a slash in two bytes", "\xc0\xaf", "\\xc0\\xaf"},
    {"an overlong three", "\xe0\x80\xaf", "\\xe0\\x80\\xaf"},
    {"a surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
    {"the last character", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},
    {"beyond the last character", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    {"a lead of five", "\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
    {"right to left override",
     "\xe2\x80\xae"
     "cod",
     "\\u{202e}cod"},
    {"the first embedding", "\xe2\x80\xaa", "\\u{202a}"},
    {"isolates", "\xe2\x81\xa6\xe2\x81\xa9", "\\u{2066}\\u{2069}"},
    {"before and behind the isolates", "\xe2\x81\xa5\xe2\x81\xaa", "\xe2\x81\xa5\xe2\x81\xaa"},
    {"a line separator", "\xe2\x80\xa8", "\\u{2028}"},
    {"backslashes stand as they are", "C:\\x", "C:\\x"},
};

TEST(FindPrintable, ShowsNothingThatMovesATerminal) {
    for (const PrintableCase& c : printableCases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(printable(c.raw), c.shown);
    }
}

TEST(FindPrintable, IsValidForJsonWhateverTheBytesAre) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i) {
        std::string raw;
        for (auto n = random() % 24; n > 0; --n) raw += static_cast<char>(random());
        const std::string shown = printable(raw);
        EXPECT_NO_THROW((void)nlohmann::json(shown).dump()) << shown;  // throws for no UTF-8
        for (const char c : shown) EXPECT_GE(static_cast<unsigned char>(c), 0x20);
        EXPECT_EQ(printable(shown), shown);
    }
}

TEST(FindPrintable, CountsCharactersAndNotBytes) {
    EXPECT_EQ(columns(""), 0u);
    EXPECT_EQ(columns("DAC"), 3u);
    EXPECT_EQ(columns("Küche"), 5u);
}

TEST(FindTable, AlignsItsColumnsAndLeavesEmptyOnesOut) {
    velmora_find::Table table({"NAME", "EMPTY", "N"});
    table.row({"Küche", "", "1"});
    table.row({"a", "", "22"});
    std::ostringstream out;
    table.print(out);
    EXPECT_EQ(out.str(), "NAME   N\nKüche  1\na      22\n");
}

}  // namespace
