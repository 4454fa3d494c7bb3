// The texts about a target, and the value that it keeps for hosts.
#include <gtest/gtest.h>

#include "target/Text.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;

std::string textOf(const Bytes& answer) {
    const auto packet = VELMORA::wire::readPacket(answer);
    return packet && packet->accepted() ? std::string(packet->text()) : "refused";
}

const Bytes askA = hex("6400 1000 2000 0000 0000 0000 0000 0000");
const Bytes askB = hex("6400 1000 2200 0000 0000 0000 0000 0000");

TEST(Info, AIsProductAndReleaseInOneLine) {
    TargetWorld world;
    EXPECT_EQ(
        world.ask(askA, controlPort),
        hex("6400 4700 2100 0100 0000 0000 0000 0000"
            "56656c6d6f726120 736f667477617265 20 7461726765742c"  // "Velmora software target,"
            "20 70726f64756374 20 4b4f5256454e5445 00000000000000"));
    auto settings = plainSettings();
    settings.release = "1.2.3";
    EXPECT_EQ(textOf(TargetWorld(settings).ask(askA, controlPort)),
              "Velmora software target, product KORVENTE, release 1.2.3");
    settings.productID = 0x1f;
    EXPECT_EQ(textOf(TargetWorld(settings).ask(askA, controlPort)),
              "Velmora software target, product 0x1f, release 1.2.3");
}

TEST(Info, BIsWhatATargetIsUpTo) {
    TargetWorld world;
    EXPECT_EQ(textOf(world.ask(askB, controlPort)),
              "bench, up 0:00:00, 2 sinks, 0 in use, value 0");
    world.now += 3'723'000'000;
    EXPECT_TRUE(world.connect());
    world.ask(hex("6400 1000 2400 0000 0700 0000 0000 0000"), controlPort);
    EXPECT_EQ(textOf(world.ask(askB, controlPort)),
              "bench, up 1:02:03, 2 sinks, 1 in use, value 7");
}

TEST(Info, IndexedIsALineForEachSink) {
    TargetWorld world;
    const Bytes first = hex("6400 1000 2c00 0000 0100 0000 0000 0000");
    EXPECT_EQ(textOf(world.ask(first, controlPort)), "Main, port 20001, idle");
    EXPECT_TRUE(world.connect());
    EXPECT_EQ(textOf(world.ask(first, controlPort)),
              "Main, port 20001, PCM 16, 2 channels, 48000 Hz, from fe80::11,40000");
    EXPECT_EQ(textOf(world.ask(hex("6400 1000 2c00 0000 ffff 0000 0000 0000"), controlPort)),
              "refused");
}

TEST(Info, TellsOfAValueThatIsNewAndOfNoRepetition) {
    TargetWorld world;
    const Bytes seven = hex("6400 1000 2400 0000 0700 0000 0000 0000");
    using Lines = std::vector<std::string>;
    world.ask(seven, controlPort);
    EXPECT_EQ(world.mail.lines, Lines{"value 7"});
    world.ask(seven, controlPort);
    EXPECT_EQ(world.mail.lines, Lines{});
    world.ask(hex("6400 1000 2400 0000 0000 0000 0000 0000"), controlPort);
    EXPECT_EQ(world.mail.lines, Lines{"value 0"});
}

TEST(Text, IsPlainWhenItIsUtf8WithoutControls) {
    struct Case {
        const char* why;
        std::string text;
        bool plain;
    };
    const Case cases[] = {
        {"empty", "", true},
        {"ASCII", "a ~", true},
        {"two, three, four bytes", "\xc3\xa9\xe2\x82\xac\xf0\x9d\x84\x9e", true},
        {"the last code point", "\xf4\x8f\xbf\xbf", true},
        {"the first behind the controls", "\xc2\xa0", true},
        {"a line feed", "a\nb", false},
        {"NUL", std::string("a\0b", 3), false},
        {"escape", "\x1b[2J", false},
        {"delete", "\x7f", false},
        {"a control in two bytes", "\xc2\x9b", false},
        {"a lone continuation", "\x80", false},
        {"Latin-1", "caf\xe9", false},
        {"a character cut off at the end", "\xe2\x82", false},
        {"a character cut off by another", "\xe2\x82\x41", false},
        {"NUL written too long", "\xc0\x80", false},
        {"a slash written too long", "\xe0\x80\xaf", false},
        {"four bytes where three do", "\xf0\x82\x82\xac", false},
        {"half of a surrogate pair", "\xed\xa0\x80", false},
        {"above the last code point", "\xf4\x90\x80\x80", false},
        {"five bytes", "\xf8\x88\x80\x80\x80", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(velmora_target::isPlainText(c.text), c.plain);
    }
}

TEST(Text, IsShownWithoutWhatATerminalOrAReaderCouldMistake) {
    struct Case {
        const char* why;
        std::string text;
        const char* shown;
    };
    const Case cases[] = {
        {"nothing", "", ""},
        {"a name", "Fran\xc3\xa7oise \xe2\x82\xac \xf0\x9f\x8e\xb5",
         "Fran\xc3\xa7oise \xe2\x82\xac \xf0\x9f\x8e\xb5"},
        {"a line feed", "a\nb", "a\\x0ab"},
        {"NUL", std::string("a\0b", 3), "a\\x00b"},
        {"escape", "\x1b[2J", "\\x1b[2J"},
        {"the last of ASCII's controls", "\x1f ", "\\x1f "},
        {"delete", "~\x7f", "~\\x7f"},
        {"the first control in two bytes", "\xc2\x80", "\\u{80}"},
        {"the last", "\xc2\x9f\xc2\xa0", "\\u{9f}\xc2\xa0"},
        {"a mark of direction", "\xd8\x9b\xd8\x9c\xd8\x9d", "\xd8\x9b\\u{61c}\xd8\x9d"},
        {"two more, and the joiner before them", "\xe2\x80\x8d\xe2\x80\x8e\xe2\x80\x8f",
         "\xe2\x80\x8d\\u{200e}\\u{200f}"},
        {"separators, and what stands around", "\xe2\x80\xa7\xe2\x80\xa8\xe2\x80\xa9",
         "\xe2\x80\xa7\\u{2028}\\u{2029}"},
        {"embeddings", "\xe2\x80\xaa\xe2\x80\xae\xe2\x80\xaf", "\\u{202a}\\u{202e}\xe2\x80\xaf"},
        {"isolates", "\xe2\x81\xa5\xe2\x81\xa6\xe2\x81\xa9\xe2\x81\xaa",
         "\xe2\x81\xa5\\u{2066}\\u{2069}\xe2\x81\xaa"},
        {"Latin-1", "caf\xe9", "caf\\xe9"},
        {"cut off at the end", "\xe2\x82", "\\xe2\\x82"},
        {"cut off by another", "\xe2\x82\x41", "\\xe2\\x82\x41"},
        {"escape written too long", "\xc0\x9b", "\\xc0\\x9b"},
        {"half of a surrogate pair", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"above the last code point", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(velmora_target::shownText(c.text), c.shown);
    }
}

TEST(Text, IsShownUpTo128BytesAndNoCharacterInPart) {
    using velmora_target::shownText;
    const auto filled = [](std::size_t bytes) { return std::string(bytes, 'x'); };
    EXPECT_EQ(shownText(filled(128)), filled(128));
    EXPECT_EQ(shownText(filled(129)), filled(128) + "...");
    EXPECT_EQ(shownText(filled(124) + '\n'), filled(124) + "\\x0a");
    EXPECT_EQ(shownText(filled(125) + "\ny"), filled(125) + "...");
    EXPECT_EQ(shownText(filled(126) + "\xe2\x82\xac"), filled(126) + "...");
    EXPECT_EQ(shownText(std::string(1400, '\x1b')).size(), 131u);
}

}  // namespace
