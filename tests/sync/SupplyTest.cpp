#include "sync/Supply.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <optional>

#include "base/BufferCS.h"

namespace {

using VELMORA::AudioSource;
using VELMORA::Drain;
using VELMORA::StreamRef;
using VELMORA::Supply;
using ZENNO::Bytes;

constexpr std::uint8_t silence = 0x69;

// Blocks in a row; none left is a false.
class Blocks final : public AudioSource {
public:
    bool getNewStream(StreamRef& out) override {
        ++calls;
        if (onCall) onCall();
        if (blocks.empty()) {
            out = {};
            return false;
        }
        lent = blocks.front();
        blocks.pop_front();
        out = {lent.data(), lent.size()};
        return true;
    }
    bool isPlaying() const noexcept override { return playing; }
    bool isDisconnecting() const noexcept override { return disconnecting; }

    std::deque<Bytes> blocks;
    Bytes lent;
    bool playing = true, disconnecting = false;
    int calls = 0;
    std::function<void()> onCall;
};

struct Supplied {
    Blocks source;
    Drain drain;
    Supply supply;
    VELMORA::CopyStream copy = VELMORA::convertCopy;
    Supply::Filled filled = Supply::Filled::whole;

    Bytes packet(std::size_t want) {
        Bytes payload(want, 0xee);
        filled = supply.fill(payload, drain, source, copy, silence);
        return payload;
    }
};

TEST(Supply, APacketWithoutPayloadAsksForNothing) {
    Supplied s;
    s.source.disconnecting = true;
    EXPECT_EQ(s.packet(0), Bytes{});
    EXPECT_EQ(s.filled, Supply::Filled::whole);
    EXPECT_EQ(s.source.calls, 0);
    EXPECT_FALSE(s.supply.takeFetched());
}

TEST(Supply, CutsBlocksOfAnyLengthIntoPackets) {
    Supplied s;
    s.source.blocks = {{1, 2, 3, 4, 5, 6}, {7}, {8, 9, 10, 11, 12}};
    EXPECT_EQ(s.packet(4), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(s.source.calls, 1);
    EXPECT_EQ(s.packet(4), (Bytes{5, 6, 7, 8})) << "three blocks in one packet";
    EXPECT_EQ(s.packet(4), (Bytes{9, 10, 11, 12}));
    EXPECT_EQ(s.source.calls, 3) << "a block that is just used up is not replaced before its time";
}

TEST(Supply, TellsOnceThatItHasFetched) {
    Supplied s;
    s.source.blocks = {{1, 2, 3, 4}, {5, 6}};
    s.packet(2);
    EXPECT_TRUE(s.supply.takeFetched());
    EXPECT_FALSE(s.supply.takeFetched());
    s.packet(2);
    EXPECT_FALSE(s.supply.takeFetched()) << "from the block in hand";
}

TEST(Supply, ABlockWithoutBytesLeadsToAnotherCallAtOnce) {
    Supplied s;
    s.source.blocks = {{}, {}, {1, 2}};
    EXPECT_EQ(s.packet(2), (Bytes{1, 2}));
    EXPECT_EQ(s.source.calls, 3);
}

TEST(Supply, EndlessEmptyBlocksCountAsNoAudio) {
    Supplied s;
    s.source.onCall = [&] { s.source.blocks = {Bytes{}}; };
    s.packet(2);
    EXPECT_EQ(s.filled, Supply::Filled::starved);
    EXPECT_EQ(s.source.calls, Supply::mostEmptyBlocks);
}

TEST(Supply, SilenceWhileNothingPlays) {
    Supplied s;
    s.source.playing = false;
    EXPECT_EQ(s.packet(3), Bytes(3, silence));
    EXPECT_EQ(s.filled, Supply::Filled::whole);
    EXPECT_EQ(s.source.calls, 0);
}

TEST(Supply, ABlockInHandIsPlayedOutAfterAStop) {
    Supplied s;
    s.source.blocks = {{1, 2, 3, 4, 5, 6}};
    s.packet(4);
    s.source.playing = false;
    EXPECT_EQ(s.packet(4), (Bytes{5, 6, silence, silence}));
    EXPECT_EQ(s.filled, Supply::Filled::whole);
    EXPECT_EQ(s.packet(4), Bytes(4, silence));
}

TEST(Supply, AudioPassesTheConversionAndSilenceDoesNot) {
    Supplied s;
    s.copy = VELMORA::convertInvert;
    s.source.blocks = {{0x00, 0x0f}};
    s.packet(1);
    s.source.playing = false;
    EXPECT_EQ(s.packet(2), (Bytes{0xf0, silence}));
}

struct EndCase {
    const char* why;
    bool playing, disconnecting;
    std::uint32_t drainStage;
    Supply::Filled filled;
    int calls;
};
constexpr EndCase endCases[] = {
    {"no audio while connected", true, false, 0, Supply::Filled::starved, 1},
    {"the audio ends while disconnecting", true, true, 0, Supply::Filled::closingFinal, 1},
    {"behind the closing packet: silence", true, true, 1, Supply::Filled::whole, 0},
    {"behind the sent closing packet", true, true, 2, Supply::Filled::whole, 0},
    {"while its INFO_ANS is awaited", true, true, 3, Supply::Filled::whole, 0},
    {"not playing, disconnecting", false, true, 0, Supply::Filled::closingDisconnect, 0},
    {"the same once more", false, true, 1, Supply::Filled::whole, 0},
    {"not playing, connected", false, false, 0, Supply::Filled::whole, 0},
};

TEST(Supply, EndsAsItsSessionEnds) {
    for (const EndCase& c : endCases) {
        SCOPED_TRACE(c.why);
        Supplied s;
        s.source.playing = c.playing;
        s.source.disconnecting = c.disconnecting;
        if (c.drainStage >= 1) s.drain.onClosingBuilt();
        if (c.drainStage >= 2) s.drain.onClosingSent();
        if (c.drainStage >= 3) s.drain.onInfoRequest();
        ASSERT_EQ(s.drain.drainStage(), c.drainStage);
        const Bytes payload = s.packet(4);
        EXPECT_EQ(s.filled, c.filled);
        EXPECT_EQ(s.source.calls, c.calls);
        if (c.filled != Supply::Filled::starved) {
            EXPECT_EQ(payload, Bytes(4, silence));
        }
    }
}

TEST(Supply, TheClosingPacketHoldsTheLastAudioFirst) {
    Supplied s;
    s.source.blocks = {{1, 2, 3}};
    s.packet(1);
    s.source.disconnecting = true;
    EXPECT_EQ(s.packet(4), (Bytes{2, 3, silence, silence}));
    EXPECT_EQ(s.filled, Supply::Filled::closingFinal);
    s.drain.onClosingBuilt();
    EXPECT_EQ(s.packet(2), Bytes(2, silence)) << "the block used up is not read again";
}

TEST(Supply, AsksWhetherItDisconnectsOnlyBehindTheCall) {
    Supplied s;
    s.source.onCall = [&] { s.source.disconnecting = true; };  // while the block was awaited
    s.packet(2);
    EXPECT_EQ(s.filled, Supply::Filled::closingFinal);
}

}  // namespace
