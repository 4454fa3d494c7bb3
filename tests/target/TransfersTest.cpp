// Transfers as a target takes them.
#include <gtest/gtest.h>

#include <random>

#include "tests/target/TransferWorld.h"

namespace {

using namespace velmora_test;
using VELMORA::wire::crc16;
using Lines = std::vector<std::string>;
using Whole = std::vector<Bytes>;
using End = TransferWorld::End;

const IPAddress other = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x12}, 40001, 3);
constexpr std::uint64_t second = 1'000'000;

Bytes slice(const Bytes& all, std::size_t from, std::size_t count) {
    const auto at = all.begin() + static_cast<std::ptrdiff_t>(from);
    return Bytes(at, at + static_cast<std::ptrdiff_t>(count));
}

TEST(Transfers, OfNobodyNeedNoTime) {
    TransferWorld t;
    t.world.pass(60 * second);
    EXPECT_EQ(t.world.target.nextTime(t.world.now), ~0ull);
    EXPECT_EQ(t.lines(), Lines{});
}

TEST(Transfers, GoByTheBytesOfTheProtocol) {
    // "123456789" in two packets, number 3 on the wire.
    auto settings = plainSettings();
    settings.channels = {{16, 1, 1}, {16, 1, 1}, {8, 2, 16}};
    settings.burstLimit = 0x1234;
    TransferWorld t(settings);
    struct Step {
        const char* why;
        const char* request;
        const char* answer;
    };
    const Step steps[] = {
        {"how many", "6400 1000 1a00 0000 0000 0000 0000 0000",
         "6400 1000 1b00 0100 0300 3412 0000 0000"},
        {"one more than there are", "6400 1000 1a00 0000 0400 0000 0000 0000",
         "6400 1000 1b00 0000 0000 0000 0000 0000"},
        {"packets of 8 bytes, 2 a block, 16 blocks", "6400 1000 1a00 0000 0300 0000 0000 0000",
         "6400 1000 1b00 0100 0300 0700 0100 0f00"},
        {"data without the mark", "6400 1800 1c00 0000 0300 0000 0000 0000 3132333435363738", ""},
        {"the last one, with 8 bytes more than it says",
         "6400 1f00 1c00 0000 0380 0100 0100 0000 39 00000000000000 ffffffffffffffff",
         "6400 1000 1d00 0100 0300 0100 0000 0000"},
        {"the end, CRC b4c8", "6400 1000 1e00 0000 0300 c8b4 ffff 0000",
         "6400 1000 1f00 0100 0300 c8b4 ffff 0000"},
        {"the end again: the answer was lost", "6400 1000 1e00 0000 0300 c8b4 ffff 0000",
         "6400 1000 1f00 0100 0300 c8b4 ffff 0000"},
        {"is that CRC what is there?", "6400 1000 1e00 0000 0300 c8b4 0000 0000",
         "6400 1000 1f00 0100 0300 c8b4 ffff 0000"},
        {"is another?", "6400 1000 1e00 0000 0300 c9b4 0000 0000",
         "6400 1000 1f00 0100 0300 c9b4 0000 0000"},
        {"the end of no channel", "6400 1000 1e00 0000 0000 c8b4 ffff 0000",
         "6400 1000 1f00 0000 0000 0000 0000 0000"},
        {"nor of one beyond", "6400 1000 1e00 0000 0400 c8b4 ffff 0000",
         "6400 1000 1f00 0000 0000 0000 0000 0000"},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.why);
        EXPECT_EQ(t.world.ask(hex(step.request), controlPort), hex(step.answer));
    }
    EXPECT_EQ(t.shelf.whole, Whole{hex("313233343536373839")});
}

TEST(Transfers, AreToldOfAsTheyGo) {
    TransferWorld t;
    EXPECT_TRUE(t.begin());
    EXPECT_EQ(t.lines(), Lines{"channel 0: transfer from fe80::11,40000 begun"});
    t.packet(0, numbered(8));
    t.packet(0, numbered(8));
    t.world.now += 500'000;
    EXPECT_TRUE(t.end(crc16(numbered(8))).accepted);
    EXPECT_EQ(t.lines(), Lines{"channel 0: transfer from fe80::11,40000 is whole: 8 bytes in "
                               "0.500 s, 0.0 kB/s, duplicates 1, in the shelf"});
    EXPECT_EQ(t.world.target.transferCounts().whole, 1u);
    EXPECT_EQ(t.world.target.transferCounts().bytes, 8u);
    EXPECT_EQ(t.world.target.transferCounts().duplicates, 1u);
}

TEST(Transfers, OfNothingAreWhole) {
    TransferWorld t;
    t.begin();
    EXPECT_EQ(t.end(0), (End{true, 0, 65535}));
    EXPECT_EQ(t.shelf.whole, Whole{Bytes{}});
}

TEST(Transfers, AcknowledgeTheUnbrokenRun) {
    TransferWorld t;
    const Bytes data = numbered(48);
    const auto send = [&](std::uint64_t place, bool last = false) {
        return TransferWorld::acknowledged(t.packet(place, slice(data, place * 8, 8), last));
    };
    t.begin();
    EXPECT_EQ(send(1), std::nullopt) << "no mark, no answer";
    EXPECT_EQ(send(2, true), 0) << "nothing from the start: 0";
    EXPECT_EQ(send(0), std::nullopt);
    EXPECT_EQ(send(2, true), 2) << "the hole is filled";
    EXPECT_EQ(send(5, true), 2);
    EXPECT_EQ(send(3), std::nullopt);
    EXPECT_EQ(send(5, true), 3) << "one is still missing";
    EXPECT_EQ(send(4), std::nullopt);
    EXPECT_EQ(send(5, true), 5);
    EXPECT_EQ(t.end(crc16(data)), (End{true, crc16(data), 65535}));
    EXPECT_EQ(t.shelf.whole, Whole{data});
    EXPECT_EQ(t.world.target.transferCounts().duplicates, 3u);
}

TEST(Transfers, SayNothingToABurstThatLostItsLastPacket) {
    TransferWorld t;
    t.begin();
    EXPECT_TRUE(t.packet(0, numbered(8)).empty());
    EXPECT_TRUE(t.packet(1, numbered(8)).empty());
    t.world.pass(second);
    EXPECT_TRUE(t.world.mail.datagrams.empty());
}

TEST(Transfers, KeepTheFirstCopyOfAPacket) {
    TransferWorld t;
    t.begin();
    t.packet(0, hex("0102030405060708"));
    t.packet(1, hex("aabbcc"), true);
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(1, hex("000000"), true)), 1)
        << "sent again without its tail, since the acknowledgement was lost";
    const Bytes whole = hex("0102030405060708aabbcc");
    EXPECT_EQ(t.end(crc16(whole)).status, 65535);
    EXPECT_EQ(t.shelf.whole, Whole{whole});
}

TEST(Transfers, WithALostTailFailAtTheCrc) {
    TransferWorld t;
    t.begin();
    t.packet(0, hex("0102030405060708"));
    t.packet(1, hex("000000"), true);  // the first copy never came
    const std::uint16_t own = crc16(hex("0102030405060708000000"));
    const std::uint16_t asked = crc16(hex("0102030405060708aabbcc"));
    EXPECT_EQ(t.end(asked), (End{true, own, 0}));
    char line[96];
    std::snprintf(line, sizeof line,
                  "channel 0: transfer from fe80::11,40000 failed: its CRC is %04x, the "
                  "host's %04x; 11 bytes",
                  unsigned{own}, unsigned{asked});
    EXPECT_EQ(t.lines(), Lines{line});
    EXPECT_EQ(t.shelf.whole, Whole{});
    EXPECT_EQ(t.shelf.discarded, 1);
    EXPECT_EQ(t.end(asked), (End{true, own, 0})) << "asked again, the same answer";
    EXPECT_EQ(t.lines(), Lines{});
    EXPECT_EQ(t.world.target.transferCounts().failed, 1u);
}

TEST(Transfers, WithAHoleAreNotWhole) {
    TransferWorld t;
    t.begin();
    t.packet(0, numbered(8));
    t.packet(2, numbered(8), true);
    const std::uint16_t crc = crc16(numbered(8));
    EXPECT_EQ(t.end(crc), (End{true, crc, 0})) << "though the run before the hole would agree";
    EXPECT_EQ(t.shelf.whole, Whole{});
}

TEST(Transfers, DropWhatIsNoPacketOfTheirs) {
    struct Case {
        const char* why;
        std::uint16_t channel, seq, index, block;
        std::size_t bytes;
    };
    const Case cases[] = {
        {"a place beyond its block", 0x8001, 4, 4, 0, 8},
        {"a number that is another place's", 0x8001, 2, 1, 0, 8},
        {"a block that is another's", 0x8001, 1, 1, 1, 8},
        {"more bytes than a packet has", 0x8001, 1, 1, 0, 9},
        {"no bytes", 0x8001, 1, 1, 0, 0},
        {"a channel without a transfer", 0x8002, 0, 0, 0, 8},
        {"channel 0 of the wire, which is none", 0x8000, 1, 1, 0, 8},
        {"a channel beyond", 0x8003, 1, 1, 0, 8},
        {"the last channel there could be", 0xffff, 1, 1, 0, 8},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        TransferWorld t;
        t.begin();
        t.packet(0, numbered(8));
        EXPECT_TRUE(t.raw(c.channel, c.seq, c.index, c.block, Bytes(c.bytes, 0xee)).empty());
        EXPECT_EQ(TransferWorld::acknowledged(t.packet(1, numbered(8), true)), 1);
        EXPECT_EQ(t.end(crc16(slice(
                            [] {
                                Bytes twice = numbered(8);
                                const Bytes more = numbered(8);
                                twice.insert(twice.end(), more.begin(), more.end());
                                return twice;
                            }(),
                            0, 16)))
                      .status,
                  65535);
    }
}

TEST(Transfers, TakeNothingBehindAShortPacket) {
    TransferWorld t;
    t.begin();
    t.packet(0, hex("0102"));
    EXPECT_TRUE(t.packet(1, numbered(8), true).empty());
    t.begin();
    t.packet(1, hex("0102"));
    t.packet(2, numbered(8));
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(0, numbered(8), true)), 1);
    EXPECT_EQ(t.end(crc16(hex("01020304050607080102"))).status, 0);
}

TEST(Transfers, RefuseWhatTheChannelDoesNotHold) {
    TransferWorld t;
    t.begin();
    for (std::uint64_t place = 0; place < 12; ++place) t.packet(place, numbered(8));
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(11, numbered(8), true)), 11);
    EXPECT_EQ(t.packet(12, numbered(8), true), hex("6400 1000 1d00 0000 0100 0b00 0000 0000"));
    EXPECT_EQ(t.lines(), Lines{"channel 0: refused more than its 96 bytes"});
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(13, numbered(8), true)), -1);
    EXPECT_EQ(t.lines(), Lines{}) << "told once";
    EXPECT_EQ(t.shelf.open, 1);
}

TEST(Transfers, GoOnPast65536Packets) {
    auto settings = transferSettings();
    settings.channels = {{8, 65536, 65536}};
    TransferWorld t(settings);
    t.begin();
    VELMORA::wire::Crc16 crc;
    const Bytes data = numbered(8);
    for (std::uint32_t i = 0; i < 65540; ++i) {
        crc.add(data);
        const Bytes answer =
            t.raw(0x8001, static_cast<std::uint16_t>(i), static_cast<std::uint16_t>(i),
                  static_cast<std::uint16_t>(i >> 16), data);
        ASSERT_EQ(TransferWorld::acknowledged(answer), static_cast<int>(i & 0xffff));
    }
    EXPECT_EQ(TransferWorld::acknowledged(t.raw(0x8001, 65535, 65535, 0, data)), 3)
        << "an old one is not taken for a new one";
    EXPECT_EQ(t.end(crc.value()).status, 65535);
    EXPECT_EQ(t.shelf.whole.at(0).size(), 65540u * 8);
}

TEST(Transfers, KeepNoMoreThan1024PacketsBeyondAHole) {
    TransferWorld t;
    t.begin(2);
    const Bytes data(1000, 7);
    for (std::uint64_t place = 1; place <= 1025; ++place) t.packet(place, data, false, 2);
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(5000, data, true, 2)), 0)
        << "too far ahead: not kept, but told from where to go on";
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(0, data, true, 2)), 1024);
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(1025, data, true, 2)), 1025);
}

// ---- one after the other ----

TEST(Transfers, BeginAnewWheneverTheirHostLikes) {
    TransferWorld t;
    t.begin();
    t.packet(0, numbered(8));
    EXPECT_TRUE(t.begin());
    EXPECT_EQ(t.lines(),
              (Lines{"channel 0: transfer from fe80::11,40000 failed: begun anew; 8 bytes",
                     "channel 0: transfer from fe80::11,40000 begun"}));
    EXPECT_EQ(t.shelf.open, 0);
    const Bytes data = hex("aabb");
    EXPECT_EQ(TransferWorld::acknowledged(t.packet(0, data, true)), 0);
    EXPECT_EQ(t.end(crc16(data)).status, 65535);
    EXPECT_EQ(t.shelf.whole, Whole{data});
}

TEST(Transfers, KeepOtherHostsAwayUntilTheyAreSilent) {
    TransferWorld t;
    t.begin();
    t.world.now += 4 * second;
    t.packet(0, numbered(8));
    t.world.now += 5 * second - 1;
    EXPECT_FALSE(t.begin(1, other));
    EXPECT_EQ(t.lines(), Lines{"refused fe80::12,40001: channel 0 is in use"});
    EXPECT_TRUE(t.begin(2, other)) << "another channel";
    t.world.now += 1;
    EXPECT_TRUE(t.begin(1, other));
    EXPECT_EQ(t.lines(),
              (Lines{"channel 0: transfer from fe80::11,40000 failed: silent for 5 s; 8 bytes",
                     "channel 0: transfer from fe80::12,40001 begun"}));
    EXPECT_TRUE(t.packet(1, numbered(8), true).empty()) << "the first host is a stranger now";
}

TEST(Transfers, ListenToTheirOwnHostAlone) {
    TransferWorld t;
    t.begin();
    const Bytes strange =
        VELMORA::wire::write(VELMORA::wire::TRANSFER_DATA{0x8001, 0, 0, 0}, Bytes(8, 0xee));
    EXPECT_TRUE(t.world.ask(strange, controlPort, other).empty());
    IPAddress otherPort = t.world.host;
    otherPort.setPortNumber(40002);
    EXPECT_TRUE(t.world.ask(strange, controlPort, otherPort).empty());
    EXPECT_EQ(t.end(0, 1, 65535, other), (End{true, 0, 0})) << "a question, which ends nothing";
    t.packet(0, numbered(8), true);
    EXPECT_EQ(t.end(crc16(numbered(8))).status, 65535);
    EXPECT_EQ(t.shelf.whole, Whole{numbered(8)});
}

TEST(Transfers, ThatFallSilentAreDropped) {
    TransferWorld t;
    t.begin();
    t.packet(0, numbered(8));
    EXPECT_EQ(t.world.target.nextTime(t.world.now), t.world.now + 5 * second);
    t.world.pass(5 * second - 1);
    EXPECT_EQ(t.shelf.open, 1);
    t.world.pass(1);
    EXPECT_EQ(t.lines(), Lines{"channel 0: transfer from fe80::11,40000 failed: silent for 5 "
                               "s; 8 bytes"});
    EXPECT_EQ(t.shelf.discarded, 1);
    EXPECT_TRUE(t.packet(1, numbered(8), true).empty());
    EXPECT_EQ(t.end(crc16(numbered(8))), (End{true, crc16(numbered(8)), 0}));
}

TEST(Transfers, EndWithTheTarget) {
    TransferWorld t;
    t.begin();
    t.packet(0, numbered(8));
    t.world.mail = {};
    t.world.target.endStreams("interrupted", t.world.mail);
    EXPECT_EQ(t.lines(), Lines{"channel 0: transfer from fe80::11,40000 failed: interrupted; "
                               "8 bytes"});
    EXPECT_EQ(t.shelf.discarded, 1);
}

TEST(Transfers, AnswerAQuestionAboutAChannelWithoutEndingAnything) {
    TransferWorld t;
    const Bytes data = numbered(8);
    const std::uint16_t crc = crc16(data);
    EXPECT_EQ(t.end(crc, 1, 0), (End{true, crc, 0})) << "nothing was there yet";
    t.begin();
    t.packet(0, data, true);
    EXPECT_EQ(t.end(crc, 1, 0), (End{true, crc, 0})) << "it is not whole yet";
    EXPECT_EQ(t.end(crc), (End{true, crc, 65535}));
    EXPECT_EQ(t.end(crc, 1, 0, other), (End{true, crc, 65535})) << "anybody may ask";
    EXPECT_EQ(t.end(crc, 2, 0), (End{true, crc, 0})) << "another channel";
    t.begin();
    t.packet(0, hex("01"), true);
    EXPECT_EQ(t.end(7).status, 0);
    EXPECT_EQ(t.end(crc, 1, 1), (End{true, crc, 65535})) << "the last whole one is still there";
}

// ---- where it goes wrong ----

TEST(Transfers, WithoutRoomAreRefusedAndSayWhy) {
    TransferWorld t;
    t.shelf.failAppend = "no room left";
    t.begin();
    EXPECT_TRUE(t.packet(0, numbered(8)).empty());
    EXPECT_EQ(t.lines(), Lines{"channel 0: no room left"});
    EXPECT_EQ(t.packet(1, numbered(8), true), hex("6400 1000 1d00 0000 0100 0100 0000 0000"));
    EXPECT_EQ(t.lines(), Lines{}) << "told once";
    Bytes both = numbered(8);
    both.insert(both.end(), both.begin(), both.begin() + 8);
    EXPECT_EQ(t.end(crc16(both)), (End{true, crc16(both), 0}));
    EXPECT_EQ(t.lines(), Lines{"channel 0: transfer from fe80::11,40000 failed: no room left; "
                               "16 bytes"});
}

TEST(Transfers, ThatRunOutOfRoomLeaveNothingBehind) {
    TransferWorld t;
    t.begin();
    t.packet(0, numbered(8));
    EXPECT_EQ(t.shelf.open, 1);
    t.shelf.failAppend = "no room left";
    t.packet(1, numbered(8));
    EXPECT_EQ(t.shelf.open, 0) << "at once: others may need the room";
}

TEST(Transfers, ThatCannotBeFinishedAreNotWhole) {
    TransferWorld t;
    t.shelf.failFinish = "the folder has gone";
    t.begin();
    t.packet(0, numbered(8), true);
    const std::uint16_t crc = crc16(numbered(8));
    EXPECT_EQ(t.end(crc), (End{true, crc, 0}));
    EXPECT_EQ(t.end(crc, 1, 0), (End{true, crc, 0}));
    EXPECT_EQ(t.shelf.discarded, 1);
}

TEST(Transfers, EndWithTheStatusThatIsAskedFor) {
    auto settings = transferSettings();
    settings.endStatus = 7;
    TransferWorld t(settings);
    t.begin();
    t.packet(0, numbered(8), true);
    const std::uint16_t crc = crc16(numbered(8));
    EXPECT_EQ(t.end(crc), (End{true, crc, 7}));
    EXPECT_EQ(t.end(crc), (End{true, crc, 7}));
    EXPECT_EQ(t.shelf.whole, Whole{}) << "what is told to have failed is not kept";
}

TEST(Transfers, NeedAnInboxAndAChannel) {
    TargetWorld noInbox(transferSettings());
    EXPECT_EQ(noInbox.ask(hex("6400 1000 1a00 0000 0000 0000 0000 0000"), controlPort),
              hex("6400 1000 1b00 0000 0000 0000 0000 0000"));
    TransferWorld noChannel(plainSettings());
    EXPECT_FALSE(noChannel.begin(0));
    EXPECT_FALSE(noChannel.begin(1));
}

// ---- on purpose ----

TEST(Transfers, AreNeverAcknowledgedWhenSilenced) {
    auto settings = transferSettings();
    settings.silent = {28};
    TransferWorld t(settings);
    t.begin();
    EXPECT_TRUE(t.packet(0, numbered(8), true).empty());
    EXPECT_EQ(t.end(crc16(numbered(8))).status, 65535) << "but they are taken";
}

TEST(Transfers, AreRefusedOnceABurst) {
    auto settings = transferSettings();
    settings.refused = {28};
    TransferWorld t(settings);
    t.begin();
    EXPECT_TRUE(t.packet(0, numbered(8)).empty());
    EXPECT_EQ(t.packet(1, numbered(8), true), hex("6400 1000 1d00 0000 0000 0000 0000 0000"));
    EXPECT_EQ(t.shelf.open, 0) << "nothing was taken";
}

TEST(Loss, TakesItsShareOfWhatComesAndOfWhatGoes) {
    const auto heard = [](std::map<std::uint16_t, double> in, std::map<std::uint16_t, double> out) {
        auto settings = transferSettings();
        settings.lost = std::move(in);
        settings.lostAnswers = std::move(out);
        TransferWorld t(settings);
        int answers = 0;
        for (int i = 0; i < 1000; ++i) answers += t.begin(0) ? 1 : 0;
        return answers;
    };
    EXPECT_EQ(heard({}, {}), 1000);
    EXPECT_EQ(heard({{26, 0}}, {{26, 0}}), 1000);
    EXPECT_EQ(heard({{26, 100}}, {}), 0);
    EXPECT_EQ(heard({}, {{26, 100}}), 0);
    EXPECT_EQ(heard({{28, 100}, {2, 100}}, {{28, 100}}), 1000) << "of other messages";
    EXPECT_NEAR(heard({{26, 20}}, {}), 800, 60);
    EXPECT_NEAR(heard({{26, 50}}, {{26, 50}}), 250, 60);
    EXPECT_EQ(heard({{26, 20}}, {}), heard({{26, 20}}, {})) << "the same by the same seed";
}

TEST(Loss, OfTheAnswersToAudioIsThatOfFeedback) {
    auto settings = plainSettings();
    settings.lostAnswers = {{10, 100}};
    TargetWorld world(settings);
    ASSERT_TRUE(world.connect());
    EXPECT_TRUE(world.data(0, Bytes(192), 0x60).empty());
}

// Any bytes at all: nothing is written but by an honest transfer, and nothing breaks.
TEST(Transfers, StandAnyDatagram) {
    TransferWorld t;
    std::mt19937 random(20);
    for (int i = 0; i < 20000; ++i) {
        const auto word = [&](std::uint32_t below) {
            return static_cast<std::uint16_t>(random() % below);
        };
        switch (random() % 8) {
            case 0:
                t.begin(word(4));
                break;
            case 1:
                t.end(word(3), word(4), random() % 2 == 0 ? 65535 : word(3));
                break;
            default:
                t.raw(static_cast<std::uint16_t>(word(4) | (random() % 2 << 15)), word(16), word(6),
                      word(5), Bytes(word(12), 1));
        }
        if (random() % 64 == 0) t.world.pass(random() % (6 * second));
    }
    EXPECT_LE(t.shelf.open, 2);
}

}  // namespace
