// The words that are worked out: feedback, class word, probe, flags of a data packet.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tests/wire/Hex.h"
#include "wire/StreamMessage.h"

namespace {

using namespace VELMORA::wire;
using namespace velmora_test;
using VELMORA::SinkConfig;
using ZENNO::Bytes;

TEST(Feedback, IsDecodedByTheEncodingThatItsWordTells) {
    struct Case {
        const char* why;
        std::uint16_t feedback, fill, fillTarget;
        FeedbackValue value;
    };
    constexpr Case cases[] = {
        {"2: 0x8000 is 0", 0x8000, 0, 0, {2, 0}},
        {"2: the least step up", 0x8001, 0, 0, {2, 1}},
        {"2: the least step down", 0xffff, 0, 0, {2, -1}},
        {"2: the largest", 0xbfff, 0, 0, {2, 16383}},
        {"2: bit 14 is the sign", 0xc000, 0, 0, {2, -16384}},
        {"2: fill and target have no say", 0x8001, 75, 50, {2, 1}},
        {"1: 0x4000 is 1.0", 0x4000, 0, 0, {1, 16384}},
        {"1: 0x2000 is 0", 0x2000, 0, 0, {1, 0}},
        {"1: the least word", 0x0001, 0, 0, {1, -16382}},
        {"1: one below the middle", 0x1fff, 0, 0, {1, -2}},
        {"1: the largest value", 0x5fff, 0, 0, {1, 32766}},
        {"1: the doubling wraps at 16 bits", 0x6000, 0, 0, {1, -32768}},
        {"1: the last word wraps too", 0x7fff, 0, 0, {1, -16386}},
        {"1: fill and target have no say", 0x2000, 75, 50, {1, 0}},
        {"3: half as much again", 0, 75, 50, {3, 8192}},
        {"3: as it should be", 0, 50, 50, {3, 0}},
        {"3: empty is -1.0", 0, 0, 50, {3, -16384}},
        {"3: twice is 1.0", 0, 100, 50, {3, 16384}},
        {"3: truncated towards zero from above", 0, 4, 3, {3, 5461}},
        {"3: truncated towards zero from below", 0, 2, 3, {3, -5461}},
        {"3: three times as much wraps to the other sign", 0, 150, 50, {3, -32768}},
        {"3: kept to 16 bits", 0, 200, 50, {3, -16384}},
        {"3: the largest difference does not overflow", 0, 65535, 1, {3, -32768}},
        {"3: empty against the largest target", 0, 0, 65535, {3, -16384}},
        {"3: full against the largest target", 0, 65535, 65535, {3, 0}},
        {"0: nothing said", 0, 0, 0, {0, 0}},
        {"0: a fill without a target", 0, 75, 0, {0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        INFO_ANS m;
        m.feedback = c.feedback;
        m.fill = c.fill;
        m.fillTarget = c.fillTarget;
        EXPECT_EQ(decodeFeedback(m).encoding, c.value.encoding);
        EXPECT_EQ(decodeFeedback(m).value, c.value.value);
    }
}

// The same rules, word by word, in arithmetic too wide to wrap.
std::int16_t slowFeedback(long long word, long long fill, long long target) {
    long long v = 0;
    if (word >= 0x8000) {
        v = word - 0x8000;
        if (v >= 0x4000) v += 0x8000;
    } else if (word != 0) {
        v = 2 * (word - 8192);
    } else if (target != 0) {
        v = std::lldiv((fill - target) * 16384, target).quot;
    }
    const long long low = ((v % 65536) + 65536) % 65536;
    return static_cast<std::int16_t>(low >= 32768 ? low - 65536 : low);
}

TEST(Feedback, AgreesWithTheSlowFormForEveryWord) {
    INFO_ANS m;
    for (int word = 0; word <= 0xffff; ++word) {
        m.feedback = static_cast<std::uint16_t>(word);
        ASSERT_EQ(decodeFeedback(m).value, slowFeedback(word, 0, 0)) << word;
    }
    m.feedback = 0;
    for (int fill = 0; fill <= 0xffff; fill += 251) {
        for (int target = 0; target <= 0xffff; target += 239) {
            m.fill = static_cast<std::uint16_t>(fill);
            m.fillTarget = static_cast<std::uint16_t>(target);
            ASSERT_EQ(decodeFeedback(m).value, slowFeedback(0, fill, target))
                << fill << "/" << target;
        }
    }
}

TEST(Feedback, EncodedAs1ComesBackWithinAStepAndClampedAtTheEnds) {
    for (int v = -32768; v <= 32767; ++v) {
        const FeedbackValue back =
            decodeFeedback(encodeFeedback(1, static_cast<std::int16_t>(v), 0, 0));
        ASSERT_EQ(back.encoding, 1) << v;
        const int reached = std::max(v, -16382);
        ASSERT_EQ(back.value, reached / 2 * 2) << v;  // odd values towards zero
    }
}

TEST(Feedback, EncodedAs2ComesBackAsItWasAndClampedAtTheEnds) {
    for (int v = -32768; v <= 32767; ++v) {
        const FeedbackValue back =
            decodeFeedback(encodeFeedback(2, static_cast<std::int16_t>(v), 0, 0));
        ASSERT_EQ(back.encoding, 2) << v;
        ASSERT_EQ(back.value, std::clamp(v, -16384, 16383)) << v;
    }
}

TEST(Feedback, EncodedAs3CarriesFillAndTarget) {
    const INFO_ANS m = encodeFeedback(3, 1234, 75, 50);
    EXPECT_EQ(m, (INFO_ANS{.fill = 75, .fillTarget = 50}));
    EXPECT_EQ(decodeFeedback(m), (FeedbackValue{3, 8192}));
}

TEST(Feedback, OfAnyOtherEncodingSaysNothing) {
    for (const int encoding : {-1, 0, 4, 100}) {
        const INFO_ANS m = encodeFeedback(encoding, 1234, 75, 50);
        EXPECT_EQ(m, INFO_ANS{});
        EXPECT_EQ(decodeFeedback(m), (FeedbackValue{0, 0}));
    }
}

TEST(ClassWord, PutsTheClassOfTheSampleFormatAndTheLatencyInPlaceOfTheFormat) {
    constexpr std::uint64_t rate = 0x000c'0000'0000, dsd64 = 0x0202'0000'0000;
    struct Case {
        const char* why;
        std::uint64_t config;
        std::uint16_t latency;
        std::uint64_t word;
    };
    constexpr Case cases[] = {
        {"PCM 8 has its class bit already", rate | 0x0102, 50, rate | 0x0032'0102},
        {"PCM 16", rate | 0x0202, 50, rate | 0x0032'0102},
        {"PCM 24", rate | 0x0402, 50, rate | 0x0032'0102},
        {"PCM 32", rate | 0x0802, 50, rate | 0x0032'0102},
        {"PCM 64", rate | 0x1002, 50, rate | 0x0032'0102},
        {"bit 15 counts as PCM integer", rate | 0x8002, 50, rate | 0x0032'0102},
        {"float 32", rate | 0x2002, 50, rate | 0x0032'0202},
        {"float 64", rate | 0x4002, 50, rate | 0x0032'0202},
        {"both floats are no sample format, so PCM integer", rate | 0x6002, 1, rate | 0x1'0102},
        {"float beside an integer is PCM integer", rate | 0x2102, 1, rate | 0x1'0102},
        {"float beside DSD is PCM integer", rate | 0x1'2002, 1, rate | 0x1'0102},
        {"DSD, LSB first, little-endian", dsd64 | 0x0251'0002, 300, dsd64 | 0x012c'0802},
        {"DSD, LSB first, big-endian", dsd64 | 0x0291'0002, 300, dsd64 | 0x012c'0802},
        {"DSD, MSB first, little-endian", dsd64 | 0x0261'0002, 300, dsd64 | 0x012c'0802},
        {"DSD, MSB first, big-endian", dsd64 | 0x02a1'0002, 300, dsd64 | 0x012c'0802},
        {"4-bit DSD", dsd64 | 0x0252'0002, 300, dsd64 | 0x012c'0802},
        {"both kinds of DSD are of the last class", dsd64 | 0x0253'0002, 300, dsd64 | 0x012c'0402},
        {"bit 18", dsd64 | 0x0004'0002, 300, dsd64 | 0x012c'0402},
        {"no format at all", 0, 0, 0x0400},
        {"the latency replaces all 16 bits", 0xffff'0002, 0, 0x0402},
        {"the largest latency", rate | 0x0402, 65535, rate | 0xffff'0102},
        {"all other bits stay", 0xffff'ffff'0000'04ff, 0x1234, 0xffff'ffff'1234'01ff},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(classWord(SinkConfig(c.config), c.latency), c.word);
    }
}

TEST(ClassWord, GrantedLatencyIsReadFromBits16To31) {
    CONNECTPRE_ANS m;
    m.word = 0xffff'ffff'1234'ffff;
    EXPECT_EQ(m.latency(), 0x1234);
}

TEST(Probe, CountsUpFrom122AndWrapsAt256) {
    Bytes body(300);
    fillProbe(body);
    EXPECT_EQ(body[0], 122);
    EXPECT_EQ(body[133], 255);
    EXPECT_EQ(body[134], 0);
    EXPECT_EQ(body[256], 122);
    EXPECT_EQ(body[299], (299 + 122) & 0xff);
}

TEST(Probe, SumIsTakenIn16BitsWithWrap) {
    struct Case {
        std::size_t bytes;
        std::uint16_t sum;
    };
    constexpr Case cases[] = {
        {0, 0},
        {1, 122},
        {10, 1265},
        {256, 32640},
        {512, 65280},
        {514, static_cast<std::uint16_t>(65280 + 122 + 123)},  // below the wrap still: 65525
        {515, static_cast<std::uint16_t>(65525 + 124 - 65536)},
        {1436,
         static_cast<std::uint16_t>(5 * 32640 + 25490 - 2 * 65536)},  // an MTU of 1500 less 64
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bytes);
        Bytes body(c.bytes);
        fillProbe(body);
        EXPECT_EQ(probeSum(body), c.sum);
    }
}

TEST(Probe, OfAnyLengthIsReadBackWithThatLength) {
    constexpr std::uint16_t lengths[] = {1, 7, 8, 9, 1436, 8936, 65512};
    for (const std::uint16_t m : lengths) {
        SCOPED_TRACE(m);
        const Bytes bytes = write(DATASIZE_REQ{.probeBytes = m});
        const auto packet = readPacket(bytes);
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(read<DATASIZE_REQ>(*packet)->probeBytes, m);
        Bytes pattern(m);
        fillProbe(pattern);
        EXPECT_TRUE(std::equal(pattern.begin(), pattern.end(), packet->payload().begin(),
                               packet->payload().end()));
    }
    // What no header can tell is cut to what it can.
    const Bytes cut = write(DATASIZE_REQ{.probeBytes = 65535});
    EXPECT_EQ(read<DATASIZE_REQ>(*readPacket(cut))->probeBytes, 65512);
}

TEST(StreamData, FlagsOfABuiltPacketChangeInTwoBitsAlone) {
    struct Case {
        const char* why;
        std::uint16_t before, asked, after;
    };
    constexpr Case cases[] = {
        {"plain", 0x0000, 0x0000, 0x0000},
        {"last of a burst", 0x0000, 0x0040, 0x0040},
        {"last, and asking", 0x0000, 0x0060, 0x0060},
        {"a resend no longer asks", 0x0060, 0x0040, 0x0040},
        {"a resend in the middle of a burst", 0x0060, 0x0000, 0x0000},
        {"other bits of the packet stay", 0xff9f, 0x0060, 0xffff},
        {"other bits of the wish are not taken", 0x0000, 0xffff, 0x0060},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes packet(24, 0xee);
        writeStreamHeader(packet, {.flags = c.before, .sequence = 0x0102}, 8);
        Bytes expected = packet;
        store16(expected, 6, c.after);
        rewriteStreamFlags(packet, c.asked);
        EXPECT_EQ(asHex(packet), asHex(expected));
    }
}

TEST(StreamData, HeaderTellsThePayloadAndLeavesItAlone) {
    Bytes packet(24, 0xee);
    writeStreamHeader(packet, {.flags = 0, .sequence = 7}, 3);
    EXPECT_EQ(asHex(packet), "64001d000a0000000700000000000000eeeeeeeeeeeeeeee");
}

// A packet that goes out again is longer than it says where n mod 8 is 0 or 7; it is read by what
// it says.
TEST(StreamData, SentAgainInTheLongerFormReadsTheSame) {
    for (const std::size_t n : {std::size_t{0}, std::size_t{7}, std::size_t{8}, std::size_t{6}}) {
        SCOPED_TRACE(n);
        Bytes packet(resentPacketBytes(n));
        writeStreamHeader(packet, {.flags = 0, .sequence = 7}, n);
        EXPECT_EQ(packet.size(), packetBytes(n) + (n == 6 ? 0 : 8));
        EXPECT_EQ(readPacket(packet)->payload().size(), n);
    }
}

TEST(InfoAns, NamesTheSameWordsTwice) {
    const INFO_ANS m{.isResend = true, .fill = 10, .fillTarget = 20};
    EXPECT_EQ(m.resendFrom(), 10);
    EXPECT_EQ(m.resendLast(), 20);
}

}  // namespace
