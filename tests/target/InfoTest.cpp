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

}  // namespace
