// What the fuzzer of the software target found, each by its symptom.
#include <gtest/gtest.h>

#include "target/Playout.h"
#include "target/ResendRequests.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;

// 48000 Hz, 16 bits, two channels: bytes of a second.
constexpr std::size_t aSecond = 192'000;

TEST(FuzzFindings, PacketsWithoutAudioThatSkipNumbersTookMemoryWithoutEnd) {
    velmora_target::NoOutput output;
    velmora_target::Playout playout({.format = pcm16Stereo48(), .targetMicros = 20'000}, output);
    std::uint16_t sequence = 0;
    for (std::uint64_t i = 0; i < 100; ++i) {
        playout.onPacket(sequence, {}, /*lastOfBurst=*/true, 1'000'000 + i * 1'000);
        sequence = static_cast<std::uint16_t>(sequence + 0x7fff);
    }
    EXPECT_LE(playout.queue().holes().size(), velmora_target::PacketQueue::mostHoles);
}

TEST(FuzzFindings, PacketsWithoutAudioAreNotHeldWithoutEndEither) {
    velmora_target::PacketQueue queue(0);
    using Put = velmora_target::PacketQueue::Put;
    std::uint16_t sequence = 0;
    for (std::size_t i = 0; i < velmora_target::PacketQueue::mostPackets; ++i) {
        ASSERT_EQ(queue.put(sequence++, {}, i), Put::newest);
    }
    EXPECT_EQ(queue.put(sequence, {}, 0), Put::foreign);
}

TEST(FuzzFindings, ManyOldHolesMadeEveryTickDear) {
    velmora_target::PacketQueue queue(0);
    velmora_target::ResendRequests requests;
    const Bytes audio(1, 1);
    queue.put(0, audio, 0);
    queue.put(20'000, audio, 1'000);
    queue.put(20'002, audio, 900'000);
    // The young one behind them is found all the same.
    const auto request = requests.due(queue, 1'000, 900'000);
    EXPECT_FALSE(request) << "it is as old as the packet before it";
    queue.put(20'004, audio, 901'000);
    const auto next = requests.due(queue, 1'000, 901'000);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->from, 20'003);
}

TEST(FuzzFindings, OneNumberSkippedFarMadeGigabytesOfSilence) {
    TargetWorld world;
    ASSERT_TRUE(world.connect());
    world.data(0, Bytes(60'000, 1));
    world.now += 1'000;
    world.data(0x7fff, Bytes(60'000, 1));
    EXPECT_LE(world.tape.bytes.size(), 3 * aSecond);
    // Nor does it as the first of all.
    ASSERT_TRUE(world.connect(VELMORA::SinkConfig(0x0000'000a'0000'0202)));
    world.data(0x7ffe, Bytes(60'000, 1));
    EXPECT_LE(world.tape.bytes.size(), 6 * aSecond);
}

TEST(FuzzFindings, ALargePacketBehindManySmallHolesMadeGigabytesOfSilence) {
    TargetWorld world;
    ASSERT_TRUE(world.connect());
    world.data(0, Bytes(8, 1));
    world.data(30'000, Bytes(8, 1));
    world.data(30'001, Bytes(60'000, 1));
    EXPECT_LE(world.tape.bytes.size(), 3 * aSecond);
}

TEST(FuzzFindings, WhatIsSkippedWhileTheLinkIsDownIsStillSilence) {
    TargetWorld world;
    ASSERT_TRUE(world.connect());
    std::uint16_t sequence = 0;
    const auto play = [&](int packets) {
        for (int i = 0; i < packets; ++i, world.now += 5'000) {
            world.data(sequence++, Bytes(960, 1));
            world.target.onTime(world.now, world.mail);
        }
    };
    play(100);
    sequence = static_cast<std::uint16_t>(sequence + 600);  // three seconds
    world.now += 3'000'000;
    play(100);
    world.mail = {};
    world.target.endStreams("the end", world.mail);
    EXPECT_EQ(world.tape.bytes.size(), 800 * 960u);
}

}  // namespace
