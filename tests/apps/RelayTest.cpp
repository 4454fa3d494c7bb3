// The relay: what it draws, what it holds back, what it does to a frame, and what it counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "apps/velmora-relay/DelayQueue.h"
#include "apps/velmora-relay/Flood.h"
#include "apps/velmora-relay/Frame.h"
#include "apps/velmora-relay/Judge.h"
#include "apps/velmora-relay/Options.h"
#include "apps/velmora-relay/Relay.h"

namespace {

using namespace velmora_relay;
using testing::ElementsAre;
using ZENNO::Bytes;

Bytes hex(const std::string& text) {
    Bytes bytes;
    std::string digits;
    for (const char c : text) {
        if (c != ' ') digits += c;
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

// fe80::11 port 40000 to fe80::22 port 19650, payload 01 02 03. The sum of the words: addresses
// fe80 + 11 + fe80 + 22, length b, protocol 11, ports 9c40 + 4cc2, length b, payload 0102 + 0300:
// 2ea5e, folded ea60, turned over 159f.
const char* const golden =
    "020000000022 020000000011 86dd 60000000 000b 11 40"
    "fe800000000000000000000000000011 fe800000000000000000000000000022"
    "9c40 4cc2 000b 159f 010203";

// ---- frames ----

TEST(RelayFrame, HasTheChecksumOfTheStandard) {
    Bytes frame = hex(golden);
    EXPECT_EQ(udpChecksum(frame), 0x159f);
    frame[60] = frame[61] = 0xee;
    mendChecksum(frame);
    EXPECT_EQ(frame, hex(golden));
}

TEST(RelayFrame, IsMadeByteForByte) {
    Flow flow;
    flow.toCard = {2, 0, 0, 0, 0, 0x22};
    flow.fromCard = {2, 0, 0, 0, 0, 0x11};
    flow.from = {0xfe, 0x80};
    flow.from[15] = 0x11;
    flow.to = {0xfe, 0x80};
    flow.to[15] = 0x22;
    flow.fromPort = 40000;
    flow.toPort = 19650;
    EXPECT_EQ(makeFrame(flow, hex("010203")), hex(golden));

    const Flow read = flowOf(hex(golden));
    EXPECT_EQ(makeFrame(read, hex("010203")), hex(golden));
    EXPECT_EQ(makeFrame(read.reversed().reversed(), hex("010203")), hex(golden));
    EXPECT_EQ(read.reversed().toPort, 40000);
}

TEST(RelayFrame, IsADatagramOnlyWhenWhole) {
    struct Case {
        const char* why;
        std::size_t at;
        std::uint8_t value;
        bool found;
    };
    const Case cases[] = {
        {"as it is", 0, 2, true},
        {"IPv4", 13, 0x00, false},
        {"a fragment", 20, 44, false},
        {"ICMP", 20, 58, false},
        {"UDP longer than IP says", 59, 0x0c, false},
        {"UDP shorter than its header", 59, 0x07, false},
        {"IP longer than the frame", 19, 0x0c, false},
        {"IP longer than UDP", 59, 0x0a, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        Bytes frame = hex(golden);
        frame[c.at] = c.value;
        EXPECT_EQ(udpPayload(frame).has_value(), c.found);
    }
    const Bytes frame = hex(golden);
    EXPECT_EQ(udpPayload(frame), 3u);
    for (std::size_t size = 0; size < frame.size(); ++size) {
        EXPECT_FALSE(udpPayload(std::span(frame).first(size))) << size;
    }
}

int bitsThatDiffer(const Bytes& a, const Bytes& b, std::size_t from, std::size_t to) {
    int bits = 0;
    for (std::size_t i = from; i < to; ++i) bits += __builtin_popcount(unsigned{a[i]} ^ b[i]);
    return bits;
}

TEST(RelayFrame, IsSpoiledInItsPayloadAlone) {
    for (std::uint32_t seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const Bytes good = hex(golden);
        Bytes unseen = good, seen = good;
        corrupt(unseen, /*unseen=*/true, random);
        EXPECT_EQ(bitsThatDiffer(good, unseen, 0, 60), 0);
        const int bits = bitsThatDiffer(good, unseen, payloadAt, good.size());
        EXPECT_TRUE(bits >= 1 && bits <= 3) << bits;
        Bytes mended = unseen;
        mendChecksum(mended);
        EXPECT_EQ(mended, unseen);

        corrupt(seen, /*unseen=*/false, random);
        EXPECT_GE(bitsThatDiffer(good, seen, payloadAt, good.size()), 1);
        mended = seen;
        mendChecksum(mended);
        EXPECT_NE(mended, seen) << "its checksum fits";
    }
}

TEST(RelayFrame, WithoutPayloadIsNotSpoiled) {
    Bytes frame = makeFrame(flowOf(hex(golden)), {});
    const Bytes before = frame;
    std::mt19937 random;
    corrupt(frame, /*unseen=*/true, random);
    EXPECT_EQ(frame, before);
}

// ---- what is drawn ----

TEST(RelayJudge, WithoutFaultsLetsAllPassAtOnce) {
    Judge judge({}, 1);
    for (std::uint64_t now = 0; now < 1000; ++now) {
        const Fate fate = judge.judge(now);
        EXPECT_FALSE(fate.isLost || fate.isHeldBack || fate.copyDue);
        EXPECT_EQ(fate.corruption, Corruption::none);
        EXPECT_EQ(fate.due, now);
    }
}

struct Losses {
    int frames = 0, runs = 0;
};
Losses lossesOf(const Faults& faults, std::uint32_t seed, int frames) {
    Judge judge(faults, seed);
    Losses losses;
    bool before = false;
    for (int i = 0; i < frames; ++i) {
        const bool lost = judge.judge(0).isLost;
        losses.frames += lost ? 1 : 0;
        losses.runs += lost && !before ? 1 : 0;
        before = lost;
    }
    return losses;
}

TEST(RelayJudge, LosesItsShareEachForItself) {
    for (const double perMille : {1.0, 10.0, 50.0, 100.0, 200.0}) {
        SCOPED_TRACE(perMille);
        const Losses losses = lossesOf({.lose = perMille}, 7, 400'000);
        EXPECT_NEAR(losses.frames / 400.0, perMille, 0.1 * perMille);
        // A run of independent losses goes on with the share itself.
        EXPECT_NEAR(double(losses.frames) / losses.runs, 1 / (1 - perMille / 1000), 0.02);
    }
}

TEST(RelayJudge, LosesTheSameShareInBursts) {
    for (const double mean : {2.0, 5.0, 20.0}) {
        SCOPED_TRACE(mean);
        const Losses losses = lossesOf({.lose = 100, .meanBurst = mean}, 7, 1'000'000);
        EXPECT_NEAR(losses.frames / 1000.0, 100, 10);
        EXPECT_NEAR(double(losses.frames) / losses.runs, mean, 0.1 * mean);
    }
    EXPECT_EQ(lossesOf({.lose = 0, .meanBurst = 5}, 7, 10'000).frames, 0);
}

TEST(RelayJudge, MeetsTheSameFramesWhateverElseIsSwitchedOn) {
    Faults one;
    one.duplicate = 100;
    Faults all = one;
    all.lose = 300;
    all.holdBack = all.corrupt = all.corruptUnseen = 200;
    all.mostDelay = 5000;
    Judge alone(one, 3), together(all, 3), again(all, 3), other(all, 4);
    int doubled = 0, differences = 0;
    for (int i = 0; i < 10'000; ++i) {
        const Fate a = alone.judge(0), b = together.judge(0), c = again.judge(0),
                   d = other.judge(0);
        doubled += a.copyDue ? 1 : 0;
        EXPECT_EQ(b.copyDue.has_value(), a.copyDue.has_value() && !b.isLost) << i;
        EXPECT_EQ(b.isLost, c.isLost);
        EXPECT_EQ(b.due, c.due);
        differences += b.isLost != d.isLost ? 1 : 0;
    }
    EXPECT_NEAR(doubled, 1000, 150);
    EXPECT_GT(differences, 1000);
}

TEST(RelayJudge, DelaysWithinItsBoundsAndInOrder) {
    Judge judge({.leastDelay = 1000, .mostDelay = 20'000}, 5);
    std::uint64_t last = 0;
    for (std::uint64_t now = 1'000'000; now < 2'000'000; now += 1000) {
        const std::uint64_t due = judge.judge(now).due;
        EXPECT_GE(due, now + 1000);
        EXPECT_LE(due, now + 20'000);
        EXPECT_GE(due, last);
        last = due;
    }
}

TEST(RelayJudge, LetsThemPassEachOtherWhenToldTo) {
    Judge judge({.leastDelay = 1000, .mostDelay = 20'000, .keepsOrder = false}, 5);
    std::uint64_t last = 0;
    int passed = 0;
    for (std::uint64_t now = 1'000'000; now < 2'000'000; now += 1000) {
        const std::uint64_t due = judge.judge(now).due;
        passed += due < last ? 1 : 0;
        last = due;
    }
    EXPECT_GT(passed, 200);
}

TEST(RelayJudge, HoldsOneBackAndNotThoseBehindIt) {
    Judge judge({.holdBack = 100, .heldMicros = 3000}, 2);
    int held = 0;
    for (std::uint64_t now = 0; now < 1'000'000; now += 1000) {
        const Fate fate = judge.judge(now);
        held += fate.isHeldBack ? 1 : 0;
        EXPECT_EQ(fate.due, now + (fate.isHeldBack ? 3000u : 0u));
    }
    EXPECT_NEAR(held, 100, 40);
}

TEST(RelayCuts, CountFromTheFirstFrame) {
    Cuts cuts({{.at = 1'000'000, .length = 200'000},
               {.at = 5'000'000, .length = 100'000, .every = 1'000'000}});
    EXPECT_FALSE(cuts.isDown(1'000'000)) << "nothing has begun";
    cuts.begin(10'000'000);
    cuts.begin(12'000'000);
    struct Case {
        std::uint64_t at;
        bool down;
    };
    for (const Case& c : {Case{10'000'000, false}, Case{10'999'999, false}, Case{11'000'000, true},
                          Case{11'199'999, true}, Case{11'200'000, false}, Case{15'000'000, true},
                          Case{15'100'000, false}, Case{16'000'000, true}, Case{16'100'000, false},
                          Case{20'050'000, true}}) {
        EXPECT_EQ(cuts.isDown(c.at), c.down) << c.at;
    }
}

// ---- the queue ----

TEST(RelayQueue, GivesByTimeAndThenByOrder) {
    DelayQueue queue;
    EXPECT_EQ(queue.nextDue(), ~0ull);
    EXPECT_FALSE(queue.pop(~0ull - 1));
    for (const auto& [due, mark] :
         std::vector<std::pair<std::uint64_t, std::uint8_t>>{{30, 1}, {10, 2}, {20, 3}, {10, 4}}) {
        EXPECT_TRUE(queue.push(due, {0, {mark}}));
    }
    EXPECT_EQ(queue.nextDue(), 10u);
    EXPECT_FALSE(queue.pop(9));
    Bytes order;
    while (const auto item = queue.pop(29)) order.push_back(item->frame[0]);
    EXPECT_THAT(order, ElementsAre(2, 4, 3));
    EXPECT_EQ(queue.nextDue(), 30u);
}

TEST(RelayQueue, TakesNoMoreThanItsBound) {
    DelayQueue queue;
    for (std::size_t i = 0; i < DelayQueue::most; ++i) EXPECT_TRUE(queue.push(1, {}));
    EXPECT_FALSE(queue.push(1, {}));
    EXPECT_TRUE(queue.pop(1));
    EXPECT_TRUE(queue.push(1, {}));
}

// ---- the flood ----

TEST(RelayFlood, WaitsForTheHostAndEndsByItsCount) {
    Flood flood({.kinds = {FloodKind::noise}, .perSecond = 20'000, .most = 50}, 1);
    EXPECT_EQ(flood.due(1'000'000), 0u);
    EXPECT_EQ(flood.nextDue(1'000'000), ~0ull);
    flood.onHost(flowOf(hex(golden)), 2'000'000);
    EXPECT_EQ(flood.due(2'000'000), 0u);
    EXPECT_EQ(flood.nextDue(2'000'000), 2'001'000u);
    EXPECT_EQ(flood.due(2'001'000), 20u);
    for (int i = 0; i < 20; ++i) flood.make();
    EXPECT_EQ(flood.due(2'001'000), 0u);
    EXPECT_EQ(flood.due(2'003'000), 30u) << "the rest of its count";
    for (int i = 0; i < 30; ++i) flood.make();
    EXPECT_EQ(flood.due(9'000'000), 0u);
    EXPECT_EQ(flood.nextDue(9'000'000), ~0ull);
}

TEST(RelayFlood, DoesNotMakeUpForATimeAway) {
    Flood flood({.kinds = {FloodKind::noise}, .perSecond = 1000, .most = 100'000}, 1);
    flood.onHost(flowOf(hex(golden)), 0);
    EXPECT_EQ(flood.due(10'000'000), 100u);
    for (int i = 0; i < 100; ++i) flood.make();
    EXPECT_EQ(flood.due(10'000'000), 0u);
    EXPECT_EQ(flood.due(10'001'000), 1u);
}

TEST(RelayFlood, GoesToWhereTheHostWasHeard) {
    const Flow host = flowOf(hex(golden));
    struct Case {
        FloodKind kind;
        bool fromTheTarget, isSound;
    };
    for (const Case& c :
         {Case{FloodKind::foreign, false, true}, Case{FloodKind::noise, true, true},
          Case{FloodKind::malformed, true, false}, Case{FloodKind::targets, false, true}}) {
        SCOPED_TRACE(static_cast<int>(c.kind));
        Flood flood({.kinds = {c.kind}, .perSecond = 1, .most = 1000}, 9);
        flood.onHost(host, 0);
        for (int i = 0; i < 300; ++i) {
            const Bytes frame = flood.make();
            const auto payload = udpPayload(frame);
            ASSERT_TRUE(payload);
            const Flow flow = flowOf(frame);
            EXPECT_EQ(flow.to, host.from);
            EXPECT_EQ(flow.toPort, host.fromPort);
            EXPECT_EQ(flow.toCard, host.fromCard);
            EXPECT_EQ(flow.from == host.to && flow.fromPort == host.toPort, c.fromTheTarget);
            const bool isSound = *payload >= 16 && frame[payloadAt] == 100 &&
                                 frame[payloadAt + 1] == 0 && frame[payloadAt + 3] == 0;
            EXPECT_EQ(isSound, c.isSound);
        }
    }
}

TEST(RelayFlood, NeverComesFromAGroup) {
    Flow host = flowOf(hex(golden));
    host.to = {0xff, 2};
    host.to[15] = 1;
    Flood flood({.kinds = {FloodKind::noise}, .perSecond = 1, .most = 10}, 9);
    flood.onHost(host, 0);
    EXPECT_EQ(flowOf(flood.make()).from[0], 0xfe);
}

// ---- the whole ----

struct World {
    explicit World(const Options& options)
        : relay(options, [this](int side, ConstBytes frame) {
              if (!canSend) return false;
              out.push_back({side, Bytes(frame.begin(), frame.end())});
              return true;
          }) {}
    void put(int side, Bytes frame, std::uint64_t now) { relay.onFrame(side, frame, now); }

    bool canSend = true;
    std::vector<std::pair<int, Bytes>> out;
    Relay relay;
};

Bytes datagram(std::size_t payload) {
    return makeFrame(flowOf(hex(golden)), Bytes(payload, 0x5a));
}

TEST(Relay, PassesEverythingToTheOtherSide) {
    World world(Options{});
    const Bytes arp = hex("ffffffffffff 020000000011 0806 0001");
    world.put(0, datagram(300), 0);
    world.put(1, datagram(20), 0);
    world.put(1, arp, 0);
    ASSERT_EQ(world.out.size(), 3u);
    EXPECT_EQ(world.out[0], std::pair(1, datagram(300)));
    EXPECT_EQ(world.out[1], std::pair(0, datagram(20)));
    EXPECT_EQ(world.out[2], std::pair(0, arp));
    EXPECT_EQ(world.relay.counts(0).datagrams, 1u);
    EXPECT_EQ(world.relay.counts(1).frames, 2u);
    EXPECT_EQ(world.relay.counts(1).datagrams, 1u);
    EXPECT_EQ(world.relay.nextTime(0), ~0ull);
}

TEST(Relay, MakesChecksumsWholeThatWereLeftToADevice) {
    World world(Options{});
    Bytes frame = hex(golden);
    frame[60] = frame[61] = 0;
    world.put(0, frame, 0);
    EXPECT_EQ(world.out.at(0).second, hex(golden));
}

TEST(Relay, ActsOnTheDirectionAndTheSizeThatItWasToldTo) {
    Options options;
    options.faults.lose = 1000;
    options.above = 200;
    options.back = false;
    World world(options);
    world.put(0, datagram(201), 0);
    world.put(0, datagram(200), 0);
    world.put(1, datagram(201), 0);
    world.put(0, hex("ffffffffffff 020000000011 0806 0001"), 0);
    EXPECT_EQ(world.out.size(), 3u);
    EXPECT_EQ(world.relay.counts(0).acted, 1u);
    EXPECT_EQ(world.relay.counts(0).actedBytes, 201u);
    EXPECT_EQ(world.relay.counts(0).lost, 1u);
    EXPECT_EQ(world.relay.counts(1).acted, 0u);
}

TEST(Relay, ActsOnAllOnceALargerOneHasCome) {
    Options options;
    options.faults.lose = 1000;
    options.above = 200;
    options.thenAll = true;
    World world(options);
    world.put(0, datagram(16), 0);
    world.put(1, datagram(200), 0);
    EXPECT_EQ(world.out.size(), 2u);
    world.put(0, datagram(201), 0);
    world.put(1, datagram(16), 0);
    world.put(0, datagram(16), 0);
    EXPECT_EQ(world.out.size(), 2u);
    EXPECT_EQ(world.relay.counts(0).lost, 2u);
    EXPECT_EQ(world.relay.counts(1).lost, 1u);
}

TEST(Relay, FloodsTheHostOnceAudioHasCome) {
    Options options;
    options.above = 200;
    options.flood = {.kinds = {FloodKind::noise}, .perSecond = 20'000, .most = 1000};
    World world(options);
    world.put(0, datagram(200), 0);
    world.put(1, datagram(300), 0);
    world.out.clear();
    world.relay.onTime(1'000'000);
    EXPECT_TRUE(world.out.empty()) << "only the target was heard with audio";
    world.put(0, datagram(201), 1'000'000);
    world.put(0, datagram(16), 1'000'500);
    world.out.clear();
    world.relay.onTime(1'001'000);
    ASSERT_EQ(world.out.size(), 20u);
    EXPECT_EQ(world.out[0].first, 0);
    EXPECT_EQ(world.relay.flooded(), 20u);
}

TEST(Relay, CountsOfAFloodWhatWasSentAndHowLongThatTook) {
    Options options;
    options.flood = {.kinds = {FloodKind::noise}, .perSecond = 20'000, .most = 100};
    World world(options);
    EXPECT_EQ(world.relay.floodMicros(), 0u);
    world.put(0, datagram(20), 1'000'000);
    world.canSend = false;
    world.relay.onTime(1'001'000);
    EXPECT_EQ(world.relay.flooded(), 0u) << "there was no room for any";
    world.canSend = true;
    world.relay.onTime(1'002'000);
    EXPECT_EQ(world.relay.flooded(), 20u);
    EXPECT_EQ(world.relay.floodMicros(), 0u);
    world.relay.onTime(1'004'000);
    world.relay.onTime(1'009'000);
    world.relay.onTime(1'020'000);
    EXPECT_EQ(world.relay.flooded(), 80u) << "those that were not sent count towards its end";
    EXPECT_EQ(world.relay.floodMicros(), 7000u) << "nothing was due any more";
}

TEST(Relay, CountsWhatWentOutLaterThanItCame) {
    Options options;
    World prompt(options);
    prompt.put(0, datagram(10), 1000);
    EXPECT_EQ(prompt.relay.counts(0).delayed, 0u);

    options.faults.leastDelay = options.faults.mostDelay = 1;
    World late(options);
    late.put(0, datagram(10), 1000);
    late.put(0, hex("ffffffffffff 020000000011 0806 0001"), 1000);
    late.put(1, datagram(10), 1000);
    EXPECT_EQ(late.relay.counts(0).delayed, 1u) << "faults act on datagrams alone";
    EXPECT_EQ(late.relay.counts(1).delayed, 1u);

    options.faults = {.holdBack = 1000};
    World held(options);
    held.put(0, datagram(10), 1000);
    EXPECT_EQ(held.relay.counts(0).delayed, 1u);

    options.faults = {.lose = 1000, .leastDelay = 1000, .mostDelay = 1000};
    World lost(options);
    lost.put(0, datagram(10), 1000);
    EXPECT_EQ(lost.relay.counts(0).delayed, 0u);
}

TEST(Relay, SendsCopiesAndDelayedFramesWhenTheyAreDue) {
    Options options;
    options.faults.duplicate = 1000;
    options.faults.leastDelay = options.faults.mostDelay = 5000;
    World world(options);
    world.put(0, datagram(10), 1000);
    EXPECT_TRUE(world.out.empty());
    EXPECT_EQ(world.relay.nextTime(1000), 6000u);
    world.relay.onTime(5999);
    EXPECT_TRUE(world.out.empty());
    world.relay.onTime(6000);
    EXPECT_EQ(world.out.size(), 2u);
    EXPECT_EQ(world.relay.counts(0).doubled, 1u);
}

TEST(Relay, CutsBothWaysWhateverFaultsActOn) {
    Options options;
    options.above = 200;
    options.back = false;
    options.faults.cuts = {{.at = 1000, .length = 500}};
    options.faults.leastDelay = options.faults.mostDelay = 100;
    World world(options);
    world.put(0, datagram(20), 0);  // too small to begin with
    world.put(0, datagram(300), 10'000);
    world.put(0, datagram(300), 10'950);  // on its way when the link goes down
    world.relay.onTime(10'900);
    EXPECT_EQ(world.out.size(), 2u);
    world.relay.onTime(11'060);
    world.put(0, datagram(300), 11'000);
    world.put(1, datagram(20), 11'499);
    world.put(1, hex("ffffffffffff 020000000011 0806 0001"), 11'499);
    EXPECT_EQ(world.out.size(), 2u);
    EXPECT_EQ(world.relay.counts(0).cut, 2u);
    EXPECT_EQ(world.relay.counts(1).cut, 2u);
    world.put(1, datagram(20), 11'500);
    EXPECT_EQ(world.out.size(), 3u);
}

// ---- the command line ----

Options optionsOf(std::vector<const char*> words) {
    words.insert(words.begin(), {"velmora-relay", "a", "b"});
    const CommandLine line = readCommandLine(static_cast<int>(words.size()), words.data());
    EXPECT_TRUE(line.options);
    return line.options.value_or(Options{});
}

TEST(RelayOptions, AreReadIntoFaults) {
    const Options o = optionsOf(
        {"--lose", "0.5",    "--burst", "4",          "--delay",     "1,20",   "--disorder",
         "--cut",  "1,0.2",  "--cut",   "3,0.9,5",    "--direction", "forth",  "--above",
         "200",    "--hold", "7",       "--hold-for", "2.5",         "--seed", "9"});
    EXPECT_EQ(o.interfaces[0], "a");
    EXPECT_EQ(o.interfaces[1], "b");
    EXPECT_EQ(o.faults.lose, 0.5);
    EXPECT_EQ(o.faults.meanBurst, 4);
    EXPECT_EQ(o.faults.leastDelay, 1000u);
    EXPECT_EQ(o.faults.mostDelay, 20'000u);
    EXPECT_FALSE(o.faults.keepsOrder);
    EXPECT_EQ(o.faults.holdBack, 7);
    EXPECT_EQ(o.faults.heldMicros, 2500u);
    ASSERT_EQ(o.faults.cuts.size(), 2u);
    EXPECT_EQ(o.faults.cuts[0].at, 1'000'000u);
    EXPECT_EQ(o.faults.cuts[0].length, 200'000u);
    EXPECT_EQ(o.faults.cuts[0].every, 0u);
    EXPECT_EQ(o.faults.cuts[1].every, 5'000'000u);
    EXPECT_TRUE(o.forth);
    EXPECT_FALSE(o.back);
    EXPECT_EQ(o.above, 200u);
    EXPECT_EQ(o.seed, 9u);
    EXPECT_TRUE(o.flood.kinds.empty());
}

TEST(RelayOptions, OfAFloodNameItsKinds) {
    const Options plain = optionsOf({"--flood", "20000"});
    EXPECT_EQ(plain.flood.perSecond, 20'000u);
    EXPECT_EQ(plain.flood.kinds.size(), 3u);
    const Options one = optionsOf({"--flood", "5", "--flood-kind", "targets", "--flood-most", "7"});
    EXPECT_THAT(one.flood.kinds, ElementsAre(FloodKind::targets));
    EXPECT_EQ(one.flood.most, 7u);
}

TEST(RelayOptions, ThatCannotBeAreRefused) {
    for (const std::vector<const char*>& words : std::vector<std::vector<const char*>>{
             {"velmora-relay"},
             {"velmora-relay", "a"},
             {"velmora-relay", "a", "b", "--lose", "1001"},
             {"velmora-relay", "a", "b", "--lose", "-1"},
             {"velmora-relay", "a", "b", "--delay", "5"},
             {"velmora-relay", "a", "b", "--delay", "5,1"},
             {"velmora-relay", "a", "b", "--delay", "1,20000"},
             {"velmora-relay", "a", "b", "--cut", "1"},
             {"velmora-relay", "a", "b", "--cut", "1,2,2"},
             {"velmora-relay", "a", "b", "--cut", "-1,2"},
             {"velmora-relay", "a", "b", "--flood", "0"},
             {"velmora-relay", "a", "b", "--flood", "1", "--flood-kind", "wet"},
             {"velmora-relay", "a", "b", "--hold-for", "-1"},
         }) {
        SCOPED_TRACE(words.back());
        testing::internal::CaptureStderr();
        const CommandLine line = readCommandLine(static_cast<int>(words.size()), words.data());
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(line.options);
        EXPECT_EQ(line.exitCode, exitUsage);
    }
}

}  // namespace
