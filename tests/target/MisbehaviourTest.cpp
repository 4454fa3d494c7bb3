// What a target that misbehaves puts on the wire, byte for byte, and that it does so nowhere else.
#include "target/Misbehaviour.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/target/TargetWorld.h"
#include "wire/StreamMessage.h"

namespace {

using namespace velmora_test;
using velmora_target::Manner;

constexpr std::uint16_t support = 4, hello = 22, audio = 10, log = 40, noPBreak = 42;
const char* const request = "6400 1000 0400 0000 0000 0000 0000 0000";
const char* const answer = "6400 1000 0500 0100 002e 2100 0000 0000";

velmora_target::TargetSettings settingsWith(std::uint16_t step, Manner manner) {
    auto settings = plainSettings();
    settings.manners = {{step, manner}};
    return settings;
}

TEST(Misbehaviour, OfEachMannerIsOnTheWireAsNamed) {
    struct Case {
        const char* name;
        const char* answer;  // empty: nothing comes back from the port that was asked
    };
    const Case cases[] = {
        {"silent", ""},
        {"dead", ""},
        {"refuse", "6400 1000 0500 0000 0000 0000 0000 0000"},
        {"accept", answer},
        {"other-id", "6400 1000 fe7f 0100 002e 2100 0000 0000"},
        {"short", "6400 1000 0500 0100"},
        {"echo", request},
        {"other-port", ""},
        {"zeros", "6400 1000 0500 0100 0000 0000 0000 0000"},
        {"ones", "6400 1000 0500 0100 ffff ffff ffff ffff"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto manner = velmora_target::mannerNamed(c.name);
        ASSERT_TRUE(manner);
        TargetWorld world(settingsWith(support, manner->manner));
        EXPECT_EQ(world.ask(hex(request), sinkPort), hex(c.answer));
    }
}

TEST(Misbehaviour, IsConfinedToItsStep) {
    for (const auto& manner : velmora_target::manners()) {
        if (manner.manner == Manner::dead) continue;
        SCOPED_TRACE(manner.name);
        TargetWorld world(settingsWith(hello, manner.manner));
        world.ask(hex("6400 1000 1600 0100 0000 0000 0000 0000"), controlPort);
        EXPECT_EQ(world.ask(hex(request), sinkPort), hex(answer));
        EXPECT_TRUE(world.connect());
        EXPECT_EQ(world.data(0, Bytes(48), 0x60).size(), 1u) << "the INFO_ANS that was asked for";
    }
}

TEST(Misbehaviour, ByAcceptanceTurnsOnlyTheBitOfARefusal) {
    const Bytes probe = hex("6400 1000 2a00 0000 0000 0000 0000 0000");
    for (const std::uint16_t port : {controlPort, sinkPort}) {
        SCOPED_TRACE(port);
        TargetWorld plain;
        EXPECT_EQ(plain.ask(probe, port), hex("6400 1000 0500 0000 0000 0000 0000 0000"));
        TargetWorld world(settingsWith(noPBreak, Manner::accept));
        EXPECT_EQ(world.ask(probe, port), hex("6400 1000 0500 0100 0000 0000 0000 0000"));
    }
}

TEST(Misbehaviour, OfTheLogReachesItsLinesToo) {
    const Bytes logRequest = hex("6400 1000 2800 0000 0100 0000 0000 0000");
    const Bytes greeting = VELMORA::wire::makePacket(hello, 1, {0, 0, 0, 0}, hex("616263"));
    const auto reader = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x12}, 41000, 3);

    TargetWorld plain;
    EXPECT_EQ(plain.ask(logRequest, controlPort, reader).size(), 16u);
    EXPECT_EQ(plain.tell(greeting, controlPort, plain.host).size(), 2u) << "an answer and a line";

    TargetWorld silent(settingsWith(log, Manner::silent));
    EXPECT_TRUE(silent.tell(logRequest, controlPort, reader).empty());
    const auto out = silent.tell(greeting, controlPort, silent.host);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].to, silent.host);

    TargetWorld elsewhere(settingsWith(log, Manner::otherPort));
    elsewhere.tell(logRequest, controlPort, reader);
    const auto both = elsewhere.tell(greeting, controlPort, elsewhere.host);
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[0].localPort, controlPort) << "the answer to somebody else";
    EXPECT_EQ(both[1].localPort, sinkPort);
}

TEST(Misbehaviour, CountsTheMessagesThatItMet) {
    TargetWorld plain;
    plain.ask(hex(request), sinkPort);
    EXPECT_EQ(plain.target.misbehaviours(), 0u);

    for (const auto& manner : velmora_target::manners()) {
        if (manner.ofStreamAlone) continue;
        SCOPED_TRACE(manner.name);
        TargetWorld world(settingsWith(support, manner.manner));
        world.ask(hex("6400 1000 1600 0100 0000 0000 0000 0000"), controlPort);
        EXPECT_EQ(world.target.misbehaviours(), 0u) << "another step";
        world.ask(hex(request), sinkPort);
        EXPECT_EQ(world.target.misbehaviours(), 1u);
        world.ask(hex(request), sinkPort);
        EXPECT_EQ(world.target.misbehaviours(), manner.manner == Manner::dead ? 1u : 2u);
    }
}

TEST(Misbehaviour, OfTheStreamAloneCountsWhatItAdds) {
    for (const Manner manner : {Manner::resendAll, Manner::resendMore, Manner::contradict}) {
        SCOPED_TRACE(static_cast<int>(manner));
        TargetWorld world(settingsWith(audio, manner));
        ASSERT_TRUE(world.connect());
        EXPECT_EQ(world.target.misbehaviours(), 0u);
        for (std::uint16_t n = 0; n < 5; ++n) world.data(n, Bytes(48), 0x60);  // asks for INFO_ANS
        EXPECT_EQ(world.target.misbehaviours(), 5u);
    }
}

TEST(Misbehaviour, FromAnotherPortComesFromOneThatTheTargetHas) {
    TargetWorld sinks(settingsWith(support, Manner::otherPort));
    auto out = sinks.tell(hex(request), sinkPort, sinks.host);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].localPort, controlPort);
    EXPECT_EQ(out[0].data, hex(answer));
    EXPECT_EQ(out[0].to, sinks.host);

    TargetWorld control(settingsWith(hello, Manner::otherPort));
    out = control.tell(hex("6400 1000 1600 0100 0000 0000 0000 0000"), controlPort, control.host);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].localPort, sinkPort);
}

TEST(Misbehaviour, OfTheDeadIsSilenceFromThereOn) {
    TargetWorld world(settingsWith(support, Manner::dead));
    world.target.announceOn({3});
    world.pass(100'000);
    EXPECT_EQ(world.mail.datagrams.size(), 1u) << "it lives";
    EXPECT_FALSE(world.ask(hex("6400 1000 1600 0100 0000 0000 0000 0000"), controlPort).empty());
    EXPECT_TRUE(world.ask(hex(request), sinkPort).empty());
    EXPECT_TRUE(world.ask(hex("6400 1000 1600 0100 0000 0000 0000 0000"), controlPort).empty());
    EXPECT_FALSE(world.connect());
    EXPECT_FALSE(world.target.isConnected()) << "it hears all the same";
    world.pass(30'000'000);
    EXPECT_TRUE(world.mail.datagrams.empty()) << "it still announces itself";
}

TEST(Misbehaviour, ByGarbageKeepsTheHeaderAndFollowsTheSeed) {
    std::set<Bytes> seen;
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        auto settings = settingsWith(support, Manner::garbage);
        settings.seed = seed;
        TargetWorld one(settings), two(settings);
        const Bytes bytes = one.ask(hex(request), sinkPort);
        ASSERT_EQ(bytes.size(), 16u);
        EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 8), hex("6400 1000 0500 0100"));
        EXPECT_EQ(two.ask(hex(request), sinkPort), bytes);
        seen.insert(bytes);
    }
    EXPECT_EQ(seen.size(), 20u);
}

TEST(Misbehaviour, ByGarbageReachesTexts) {
    TargetWorld world(settingsWith(0, Manner::garbage));
    const Bytes bytes = world.ask(hex("6400 1000 0000 0000 0000 0000 0000 0000"), controlPort);
    ASSERT_EQ(bytes.size(), 24u);
    EXPECT_NE(Bytes(bytes.begin() + 16, bytes.begin() + 21), hex("62656e6368"));
}

// Packets `from` to `to`, every one asking how full the buffer is.
std::vector<velmora_target::Outgoing> lastAnswers(TargetWorld& world, std::uint16_t from,
                                                  std::uint16_t to) {
    std::vector<velmora_target::Outgoing> out;
    for (std::uint16_t n = from; n != to; ++n) out = world.data(n, Bytes(48), 0x40);
    return out;
}

TEST(Misbehaviour, InAStreamAsksForAllThatAHostHas) {
    TargetWorld world(settingsWith(audio, Manner::resendAll));
    EXPECT_TRUE(world.data(0, Bytes(48)).empty()) << "nobody is connected";
    ASSERT_TRUE(world.connect());
    auto out = lastAnswers(world, 0, 6);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].to, world.host);
    EXPECT_EQ(out[0].localPort, sinkPort);
    EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0900 0000 0000 0500 0000")) << "0 to 5";
    out = lastAnswers(world, 6, 1201);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0900 0000 c800 b004 0000")) << "200 to 1200";
}

TEST(Misbehaviour, InAStreamAsksForMoreThanAnyHostHas) {
    TargetWorld world(settingsWith(audio, Manner::resendMore));
    ASSERT_TRUE(world.connect());
    const auto out = lastAnswers(world, 0, 6);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0900 0000 0580 0500 0000"));
}

TEST(Misbehaviour, InAStreamContradictsItself) {
    TargetWorld world(settingsWith(audio, Manner::contradict));
    ASSERT_TRUE(world.connect());
    for (std::uint16_t n = 0; n < 10; n = static_cast<std::uint16_t>(n + 2)) {
        auto out = world.data(n, Bytes(48));
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0101 ff7f ffff 0000 0000"));
        out = world.data(static_cast<std::uint16_t>(n + 1), Bytes(48));
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0100 0180 0000 ffff 0000"));
    }
}

TEST(Misbehaviour, OfTheStreamSpoilsWhatIsSaidUnasked) {
    // A hole: the target asks for packet 1 as soon as packet 2 has come.
    TargetWorld plain;
    ASSERT_TRUE(plain.connect());
    plain.data(0, Bytes(48));
    ASSERT_EQ(plain.data(2, Bytes(48)).size(), 1u);

    TargetWorld spoiled(settingsWith(audio, Manner::zeros));
    ASSERT_TRUE(spoiled.connect());
    spoiled.data(0, Bytes(48));
    const auto out = spoiled.data(2, Bytes(48));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].data, hex("6400 1000 0b00 0900 0000 0000 0000 0000"));
    // And asks again, when nothing came.
    spoiled.pass(20'000);
    ASSERT_FALSE(spoiled.mail.datagrams.empty());
    for (const auto& again : spoiled.mail.datagrams) EXPECT_EQ(again.data, out[0].data);
}

TEST(Misbehaviour, HasNamesThatLeadBackToIt) {
    std::set<std::string_view> names;
    for (const auto& manner : velmora_target::manners()) {
        SCOPED_TRACE(manner.name);
        EXPECT_TRUE(names.insert(manner.name).second);
        const auto found = velmora_target::mannerNamed(manner.name);
        ASSERT_TRUE(found);
        EXPECT_EQ(found->manner, manner.manner);
        EXPECT_EQ(manner.ofStreamAlone, manner.manner == Manner::resendAll ||
                                            manner.manner == Manner::resendMore ||
                                            manner.manner == Manner::contradict);
    }
    EXPECT_FALSE(velmora_target::mannerNamed(""));
}

}  // namespace
