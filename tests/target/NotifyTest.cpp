// NOTIFY: how a target makes itself known, and tells that it has changed.
#include <gtest/gtest.h>

#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;

const char* const writeName =
    "6400 1c00 3200 0000 0100 0100 0000 0000 4b697461 00000000";  // item 1 "Kita"
const char* const commit = "6400 1000 3200 0000 0000 0200 0000 0000";
const char* const announceOff = "6400 1000 3200 0000 0600 0100 0000 0000";
const char* const announceOn = "6400 1000 3200 0000 0600 0100 0100 0000";

// The words of what was sent, in order.
std::vector<int> words(const velmora_target::Mail& mail) {
    std::vector<int> found;
    for (const auto& out : mail.datagrams) {
        const auto packet = VELMORA::wire::readPacket(out.data);
        if (packet && packet->id() == 0x8001) found.push_back(packet->arg16(8));
    }
    return found;
}

using Words = std::vector<int>;

TEST(Notify, ComesAtOnceAndEveryTenSecondsWithAnotherWord) {
    TargetWorld world;
    world.target.announceOn({3, 5});
    world.pass(1);
    ASSERT_EQ(world.mail.datagrams.size(), 2u);
    EXPECT_EQ(world.mail.datagrams[0].to, IPAddress::allNodes(19643, 3));
    EXPECT_EQ(world.mail.datagrams[1].to, IPAddress::allNodes(19643, 5));
    EXPECT_EQ(world.mail.datagrams[0].localPort, controlPort);
    EXPECT_EQ(world.mail.datagrams[0].data, hex("6400 1000 0180 0000 0000 0000 0000 0000"));
    world.pass(9'000'000);
    EXPECT_TRUE(world.mail.datagrams.empty());
    world.pass(1'000'000);
    ASSERT_EQ(world.mail.datagrams.size(), 2u);
    EXPECT_EQ(world.mail.datagrams[0].data, hex("6400 1000 0180 0000 0100 0000 0000 0000"));
}

TEST(Notify, NeverRepeatsTheWordOfAFreshStart) {
    TargetWorld world;
    world.target.announceOn({3});
    world.pass(1);
    for (int i = 0; i < 65536; ++i) {
        world.now += 10'000'000;
        world.mail = {};
        world.target.onTime(world.now, world.mail);
        ASSERT_EQ(words(world.mail), Words{i == 65535 ? 1 : i + 1});
    }
}

TEST(Notify, ComesAtOnceWhenACommitChangedSomethingAndTenSecondsAfterThat) {
    TargetWorld world;
    world.target.announceOn({3});
    world.pass(1);
    world.pass(4'000'000);
    world.tell(hex(writeName), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{}) << "written is not in force";
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{1});
    EXPECT_EQ(world.mail.datagrams.at(0).data, hex("6400 1000 3300 0100 0000 0000 0000 0000"))
        << "the host has its answer first";
    world.pass(9'999'999);
    EXPECT_EQ(words(world.mail), Words{});
    world.pass(1);
    EXPECT_EQ(words(world.mail), Words{2});
}

TEST(Notify, IsNotSentForACommitThatChangedNothing) {
    TargetWorld world;
    world.target.announceOn({3});
    world.pass(1);
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{});
    world.tell(hex(writeName), controlPort, world.host);
    world.tell(hex(commit), controlPort, world.host);
    world.tell(hex(writeName), controlPort, world.host);
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{}) << "the same name again";
}

TEST(Notify, OfAChangeAheadOfTheFirstHasTheWordOfAFreshStart) {
    TargetWorld world;
    world.target.announceOn({3});
    world.tell(hex(writeName), controlPort, world.host);
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{0});
    world.pass(10'000'000);
    EXPECT_EQ(words(world.mail), Words{1});
}

TEST(Notify, StopsAndStartsWithItsSwitch) {
    TargetWorld world;
    world.target.announceOn({3});
    world.pass(1);
    world.tell(hex(announceOff), controlPort, world.host);
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{});
    world.pass(60'000'000);
    EXPECT_EQ(words(world.mail), Words{});
    world.tell(hex(announceOn), controlPort, world.host);
    world.tell(hex(commit), controlPort, world.host);
    EXPECT_EQ(words(world.mail), Words{1});
}

TEST(Notify, CanBeSilencedAndLost) {
    auto settings = plainSettings();
    settings.silent = {0x8001};
    TargetWorld silent(settings);
    silent.target.announceOn({3});
    silent.pass(60'000'000);
    EXPECT_EQ(words(silent.mail), Words{});

    settings = plainSettings();
    settings.lostAnswers = {{0x8001, 50}};
    TargetWorld losing(settings);
    losing.target.announceOn({3});
    losing.pass(1'000'000'000);
    const std::size_t sent = words(losing.mail).size();
    EXPECT_GT(sent, 25u);
    EXPECT_LT(sent, 75u);
}

}  // namespace
