// Every golden datagram in both directions, and what becomes of it when it arrives damaged.
#include "tests/wire/Golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/wire/Messages.h"

namespace {

using namespace velmora_test;
using ZENNO::Bytes;

TEST(Golden, EveryMessageHasOne) {
    const std::vector<Golden> goldens = allGoldens();
    for (const std::uint16_t id : AllMessages::ids) {
        EXPECT_TRUE(std::any_of(goldens.begin(), goldens.end(),
                                [id](const Golden& g) { return g.id == id; }))
            << "id " << id;
    }
}

TEST(Golden, NoTwoMessagesShareAnId) {
    auto ids = AllMessages::ids;
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

TEST(Golden, IsWhatTheWriterMakes) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        EXPECT_EQ(asHex(g.written()), asHex(g.bytes));
    }
}

TEST(Golden, IsReadAsItsMessage) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        const auto packet = w::readPacket(g.bytes);
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(packet->id(), g.id);
        EXPECT_TRUE(g.isReadBack(*packet));
    }
}

TEST(Golden, IsTakenByNoReaderButItsOwn) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        EXPECT_EQ(AllMessages::takers(*w::readPacket(g.bytes)), 1);
    }
}

TEST(Golden, IsReadTheSameWithBytesBehindIt) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        Bytes longer = g.bytes;
        longer.insert(longer.end(), 13, 0xee);
        const auto packet = w::readPacket(longer);
        ASSERT_TRUE(packet.has_value());
        EXPECT_TRUE(g.isReadBack(*packet));
        EXPECT_EQ(packet->datagram().size(), longer.size());
    }
}

// The truncated bytes stand in a block of their own size, so that a look behind them is caught.
TEST(Golden, CutAnywhereIsNoPacket) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        for (std::size_t length = 0; length < g.bytes.size(); ++length) {
            const Bytes cut(g.bytes.begin(), g.bytes.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_FALSE(w::readPacket(cut).has_value()) << "cut to " << length;
        }
    }
}

// Cut, and with a sizeWord of every kind that the rest allows: too little for a header, all filler,
// less filler. Each is a packet, and its one reader gives a value whose text lies within.
TEST(Golden, CutWithASizeThatFitsGivesASoundValue) {
    for (const Golden& g : allGoldens()) {
        SCOPED_TRACE(g.why);
        for (std::size_t length = 16; length <= g.bytes.size(); ++length) {
            Bytes cut(g.bytes.begin(), g.bytes.begin() + static_cast<std::ptrdiff_t>(length));
            for (std::size_t word = 0; word <= (length & ~std::size_t{7}) + 7; ++word) {
                w::store16(cut, 2, static_cast<std::uint16_t>(word));
                const auto packet = w::readPacket(cut);
                ASSERT_TRUE(packet.has_value());
                EXPECT_LE(packet->payload().size(), length - 16);
                EXPECT_EQ(packet->text().size(), packet->payload().size());
                EXPECT_EQ(AllMessages::takers(*packet), 1);
            }
        }
    }
}

TEST(Golden, DamagedAtRandomNeverHarmsAReader) {
    const std::uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::vector<Golden> goldens = allGoldens();
    for (int turn = 0; turn < 20'000; ++turn) {
        Bytes bytes = goldens[random() % goldens.size()].bytes;
        for (unsigned n = random() % 4; n > 0; --n) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        bytes.resize(random() % (bytes.size() + 1));
        bytes.shrink_to_fit();
        if (const auto packet = w::readPacket(bytes)) {
            EXPECT_LE(AllMessages::takers(*packet), 1);
            EXPECT_LE(packet->payload().size() + 16, bytes.size());
        }
    }
}

// ---- rules that hold for all messages of a kind ----

template <class M>
concept Answer = requires(M m) {
    m.accepted;
};

TEST(Golden, ARefusalDiffersFromItsAnswerInBit0OfTheFlagsAlone) {
    int answers = 0;
    AllMessages::each([&]<class M>() {
        if constexpr (Answer<M>) {
            SCOPED_TRACE(M::id);
            ++answers;
            M yes{}, no{};
            no.accepted = false;
            Bytes refused = write(no);
            EXPECT_EQ(w::read<M>(*w::readPacket(refused)), no);
            refused[6] ^= 1;
            EXPECT_EQ(asHex(refused), asHex(write(yes)));
        }
    });
    EXPECT_EQ(answers, 23);
}

TEST(Golden, OnlyClientAndHelloAmongTheRequestsCarryAFlag) {
    AllMessages::each([&]<class M>() {
        if constexpr (
            requires { M::answer; } && requires(M m) { write(m); }) {
            SCOPED_TRACE(M::id);
            const bool flagged = M::id == w::CLIENT_REQ::id || M::id == w::HELLO_REQ::id;
            EXPECT_EQ(w::readPacket(write(M{}))->flags(), flagged ? 1 : 0);
        }
    });
}

TEST(Golden, AnAnswersIdIsTheRequestsPlusOneButForNopBreak) {
    AllMessages::each([&]<class M>() {
        if constexpr (requires { M::answer; }) {
            SCOPED_TRACE(M::id);
            EXPECT_EQ(M::answer, M::id == w::NOPBREAK_REQ::id ? w::SUPPORT_ANS::id : M::id + 1);
        }
    });
}

// Bytes of arg that a message does not name are not looked at; those that it names are all there
// is.
TEST(Golden, BytesThatAMessageDoesNotNameAreIgnored) {
    struct Case {
        const char* why;
        const char* named;  // as golden
        const char* noisy;  // the same with every unnamed byte set
    };
    const Case cases[] = {
        {"LATENCY_REQ", "6400 1000 0600 0000  2c01 0000 0000 0000",
         "6400 1000 0600 ffff  2c01 ffff ffff ffff"},
        {"LATENCY_ANS", "6400 1000 0700 0100  2c01 0f00 0000 0000",
         "6400 1000 0700 ffff  2c01 0f00 ffff ffff"},
        {"PROFILE_ANS", "6400 1000 1500 0100  2800 e803 1f00 0000",
         "6400 1000 1500 ffff  2800 e803 1f00 ffff"},
        {"CLIENT_ANS", "6400 1000 1900 0100  0000 0000 0000 0000",
         "6400 1000 1900 ffff  ffff ffff ffff ffff"},
        {"CONNECT_ANS, phase bits 0x180 are not inversion",
         "6400 1000 0900 0100  50c3 0000 0000 0000", "6400 1000 0900 ffff  50c3 ffff ffff ffff"},
        {"CONNECT_ANS, phase bits 0x080 are not inversion",
         "6400 1000 0900 0100  50c3 0000 0000 0000", "6400 1000 0900 8100  50c3 0000 0000 0000"},
        {"CONNECT_ANS, bits beside the phase", "6400 1000 0900 0101  50c3 0000 0000 0000",
         "6400 1000 0900 7fff  50c3 0000 0000 0000"},
        {"INFO_ANS, phase bits 0x180 are not inversion", "6400 1000 0b00 0100  0030 0000 0000 0000",
         "6400 1000 0b00 8101  0030 0000 0000 ffff"},
        {"INFO_ANS, phase bits 0x080 are not inversion", "6400 1000 0b00 0100  0030 0000 0000 0000",
         "6400 1000 0b00 8100  0030 0000 0000 0000"},
        {"INFO_ANS, bits beside the phase and the resend flag",
         "6400 1000 0b00 0901  0030 0000 0000 0000", "6400 1000 0b00 7fff  0030 0000 0000 0000"},
        {"LOG_REQ takes any number but 0", "6400 1000 2800 0000  0100 0000 0000 0000",
         "6400 1000 2800 0000  0080 ffff ffff ffff"},
        {"FIND_REQ", "6400 1000 0000 0000  0100 0000 0000 0000",
         "6400 1000 0000 ffff  0100 ffff ffff ffff"},
        {"SINK_REQ, its constant included", "6400 1000 0200 0000  0200 0000 0000 0100",
         "6400 1000 0200 ffff  0200 ffff ffff ffff"},
        {"SINK_ANS", "6400 1c00 0300 0100  0200 0000 50c3 0100  4d61696e 00000000",
         "6400 1c00 0300 ffff  0200 ffff 50c3 0100  4d61696e ffffffff"},
        {"HELLO_REQ, its flag included", "6400 1900 1600 0100  4b4f5256454e5445 56656c6d6f7261 00",
         "6400 1900 1600 0000  4b4f5256454e5445 56656c6d6f7261 ff"},
        {"NOTIFY", "6400 1000 0180 0000  efbe 0000 0000 0000",
         "6400 1000 0180 ffff  efbe ffff ffff ffff"},
        {"TRANSFER_ACK", "6400 1000 1d00 0100  0300 0900 0000 0000",
         "6400 1000 1d00 ffff  0300 0900 ffff ffff"},
        {"TRANSFEREND_ANS", "6400 1000 1f00 0100  0300 c8b4 ffff 0000",
         "6400 1000 1f00 ffff  0300 c8b4 ffff ffff"},
        {"ITEMVALUE_REQ, a text in another mode than writing",
         "6400 1000 3200 0000  0300 0300 ffff 0000",
         "6400 1f00 3200 ffff  0300 0300 ffff ffff  78 ffffffffffffff"},
        {"ITEMVALUE_ANS", "6400 1d00 3300 0100  0300 0700 0000 0200  6d6964 0000000000",
         "6400 1d00 3300 ffff  0300 0700 ffff 0200  6d6964 ffffffffff"},
        {"DATASIZE_REQ, the pattern's bytes",
         "6400 2600 0e00 0000  0000000000000000  7a7b7c7d7e7f80818283 000000000000",
         "6400 2600 0e00 ffff  ffffffffffffffff  ffffffffffffffffffff ffffffffffff"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const Bytes named = hex(c.named), noisy = hex(c.noisy);
        const auto a = w::readPacket(named), b = w::readPacket(noisy);
        ASSERT_TRUE(a.has_value() && b.has_value());
        int compared = 0;
        AllMessages::each([&]<class M>() {
            if (M::id != a->id()) return;
            ++compared;
            EXPECT_EQ(w::read<M>(*a), w::read<M>(*b));
        });
        EXPECT_EQ(compared, 1);
    }
}

TEST(Golden, AnItemsTextIsSentWithTheWritingModeAlone) {
    for (std::uint16_t mode = 0; mode < 5; ++mode) {
        SCOPED_TRACE(mode);
        const Bytes bytes = write(w::ITEMVALUE_REQ{.itemNo = 3, .mode = mode, .text = "mid"});
        EXPECT_EQ(w::readPacket(bytes)->text(), mode == w::ITEMVALUE_REQ::modeWrite ? "mid" : "");
    }
}

// A reader's value lives on its own: it must not look into the packet's buffer any more.
TEST(Golden, AMessageOutlivesItsDatagram) {
    Bytes bytes = hex("6400 1c00 0300 0100  0200 0000 50c3 0100  4d61696e 00000000");
    const auto sink = w::read<w::SINK_ANS>(*w::readPacket(bytes));
    std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
    EXPECT_EQ(sink->sinkName, "Main");
}

}  // namespace
