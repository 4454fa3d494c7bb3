// Every field of every message, as this tree's own decoder reads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "target/FormatMasks.h"
#include "tests/dissector/Expected.h"
#include "tests/dissector/Talk.h"
#include "tests/wire/Golden.h"
#include "tests/wire/Messages.h"

namespace velmora_test {
namespace {

using namespace VELMORA::wire;
using testing::IsEmpty;
using VELMORA::SinkConfig;

// A capture, and beside it what has to be shown of each packet.
class Comparison {
public:
    // A question and its answer, from a port of their own, so that nothing of one belongs to
    // another.
    void exchange(const Bytes& request, const Bytes& answer, const Asked& asked = {}) {
        const IPAddress host = hostAt(nextPort_++);
        const std::uint16_t id = load16(request, 4);
        add(host, targetAt(), request, asked);
        Asked of = asked;
        of.number = load16(request, 8);
        if (id == SUPPORT_REQ::id) {
            const auto packet = readPacket(request);
            of.supportFamily = expectedFields(*packet, {}).at("support.asks");
        }
        if (id == DATASIZE_REQ::id && request.size() > headerBytes) {
            of.probeSum = probeSum(readPacket(request)->payload());
        }
        add(targetAt(), host, answer, of);
    }
    template <class Q, class A>
    void exchange(const Q& request, const A& answer, const Asked& asked = {}) {
        exchange(write(request), write(answer), asked);
        exchange(write(request), refused(write(answer)), asked);
    }
    void alone(const Bytes& datagram, const IPAddress& from, const IPAddress& to) {
        add(from, to, datagram, {});
    }
    void fromHost(const Bytes& datagram) { alone(datagram, hostAt(nextPort_++), targetAt()); }
    void fromTarget(const Bytes& datagram) { alone(datagram, targetAt(), hostAt(nextPort_++)); }

    // Compares, and gives the ids that were there.
    std::set<std::uint16_t> compare(const std::set<std::string>& allowedMarks = {}) const {
        std::set<std::uint16_t> ids;
        const std::vector<Shown> shown = dissect(capture_);
        for (std::size_t i = 0; i < shown.size(); ++i) {
            const auto packet = readPacket(datagrams_[i]);
            SCOPED_TRACE("packet " + std::to_string(i + 1) + ", id " +
                         std::to_string(packet->id()));
            ids.insert(packet->id());
            EXPECT_TRUE(shown[i].isOurs);
            EXPECT_EQ(ownFields(shown[i]), expectedFields(*packet, asked_[i]));
            for (const auto& [mark, text] : shown[i].marks) {
                EXPECT_TRUE(allowedMarks.contains(mark)) << mark << ": " << text;
            }
            if (testing::Test::HasFailure()) break;  // one is enough to read
        }
        return ids;
    }

private:
    void add(const IPAddress& from, const IPAddress& to, const Bytes& datagram,
             const Asked& asked) {
        capture_.add(from, to, datagram);
        datagrams_.push_back(datagram);
        asked_.push_back(asked);
    }
    std::uint16_t nextPort_ = 30000;
    Capture capture_;
    std::vector<Bytes> datagrams_;
    std::vector<Asked> asked_;
};

const std::set<std::string> aboutPairs = {"refused", "no_answer", "unasked", "answered_again"};
const std::set<std::string> aboutPairsAndFormats = {"refused", "no_answer", "unasked",
                                                    "target_ends", "invalid_format"};

constexpr std::uint16_t extremes[] = {0, 1, 0x00ff, 0x0100, 0x7fff, 0x8000, 0xfffe, 0xffff};
constexpr std::uint64_t extremes64[] = {
    0, 1, 0x4554'4e45'5652'4f4b, 0x8000'0000'0000'0000, ~0ull, 0x0807'0605'0403'0201};
const std::string texts[] = {"",          "a",
                             "1234567",   "12345678",
                             "123456789", "Küche & Wohnzimmer \"links\" \\ <rechts>",
                             "音楽室",    std::string(1200, 'x')};

TEST(DissectorFields, OfDiscovery) {
    Comparison c;
    for (const std::uint16_t v : extremes) {
        c.fromHost(write(FIND_REQ{v}));
        c.alone(write(NOTIFY{v}), targetAt(50000), everybody(NotifyPort));
        if (v != 0) {
            c.exchange(SINK_REQ{v}, SINK_ANS{true, v, 0, v, "Main"});
            c.exchange(SINK_REQ{v}, SINK_ANS{true, 0, v, static_cast<std::uint16_t>(~v), "x"});
        }
        c.exchange(SINK_REQ{0}, SINK_ANS{true, v, 0, 0, ""});
    }
    for (const std::uint64_t v : extremes64) {
        c.exchange(FIND_REQ{}, FIND_ANS{true, v, "Living room"});
        c.exchange(HELLO_REQ{v, "Velmora"}, HELLO_ANS{});
    }
    for (const std::string& text : texts) {
        c.exchange(FIND_REQ{}, FIND_ANS{true, 7, text});
        c.exchange(HELLO_REQ{7, text}, HELLO_ANS{});
        c.exchange(SINK_REQ{2}, SINK_ANS{true, 2, 50000, 1, text});
        c.exchange(CONFIG_REQ{}, CONFIG_ANS{true, text});
    }
    // The change words all come from one target and grow; only the first was 0.
    std::set<std::string> marks = aboutPairs;
    marks.insert("restarted");
    c.compare(marks);
}

TEST(DissectorFields, OfNegotiation) {
    Comparison c;
    for (const std::uint16_t v : extremes) {
        const auto w = static_cast<std::uint16_t>(~v);
        c.exchange(LATENCY_REQ{v}, LATENCY_ANS{true, v, w});
        c.exchange(DATASIZE_REQ{}, DATASIZE_ANS{true, v, w, w, v});
        c.exchange(PROFILE_REQ{}, PROFILE_ANS{true, v, w, static_cast<std::uint16_t>(v * 3)});
        c.exchange(CONNECT_REQ{SinkConfig(0x0000'000c'0000'0402)}, CONNECT_ANS{true, false, v});
        c.exchange(CONNECT_REQ{SinkConfig(0x0000'000c'0000'0402)}, CONNECT_ANS{true, true, v});
    }
    for (std::uint16_t flags = 0; flags < 32; ++flags) {
        c.exchange(PROFILE_REQ{}, PROFILE_ANS{true, 40, 1000, flags});
    }
    for (const std::uint64_t v : extremes64) {
        c.exchange(SUPPORT_REQ{v}, SUPPORT_ANS{true, v});
        c.exchange(CONNECTPRE_REQ{v}, CONNECTPRE_ANS{true, v});
        c.exchange(CLIENT_REQ{v, "Host"}, CLIENT_ANS{});
    }
    for (const std::uint64_t selector : {0xff00ull, 0x100ull, 0x10'0000ull, 0x20'0000ull}) {
        for (int bit = 0; bit < 64; ++bit) {
            c.exchange(write(SUPPORT_REQ{selector}), write(SUPPORT_ANS{true, 1ull << bit}));
        }
    }
    for (const std::string& text : texts) c.exchange(CLIENT_REQ{1, text}, CLIENT_ANS{});
    c.exchange(NOPBREAK_REQ{}, SUPPORT_ANS{});
    c.exchange(DSICONNECT_REQ{}, DSICONNECT_ANS{});
    c.compare(aboutPairsAndFormats);
}

TEST(DissectorFields, OfProbes) {
    Comparison c;
    for (const int bytes : {1, 7, 8, 9, 10, 255, 256, 257, 1436, 8936}) {
        const auto length = static_cast<std::uint16_t>(bytes);
        const auto probe = write(DATASIZE_REQ{length});
        const std::uint16_t sum = probeSum(readPacket(probe)->payload());
        const auto other = static_cast<std::uint16_t>(sum + 1);
        c.exchange(probe, write(DATASIZE_ANS{true, 1500, 0xffff, length, sum}));
        c.exchange(probe, write(DATASIZE_ANS{true, 1500, 15000, length, other}));
        c.exchange(probe, write(DATASIZE_ANS{false, 1500, 15000, length, sum}));
        Bytes damaged = probe;
        damaged[headerBytes + length / 2] ^= 0x10;
        c.exchange(damaged, write(DATASIZE_ANS{true, 1500, 15000, length, sum}));
    }
    std::set<std::string> marks = aboutPairs;
    marks.insert("probe_wrong");
    c.compare(marks);
}

// All formats there are, in every order and at every rate, and words that are none.
TEST(DissectorFields, OfTheFormatWordInTheWordsOfTheOtherPrograms) {
    Comparison c;
    std::mt19937_64 random(1);
    const auto ask = [&](std::uint64_t word) {
        c.fromHost(write(CONNECT_REQ{SinkConfig(word)}));
        c.fromHost(write(PROFILE_REQ{SinkConfig(word)}));
        c.fromHost(write(CONNECTPRE_REQ{classWord(SinkConfig(word), 300)}));
    };
    constexpr std::uint64_t samples[] = {
        SinkConfig::pcm8, SinkConfig::pcm16, SinkConfig::pcm24, SinkConfig::pcm32,
        SinkConfig::pcm64, SinkConfig::float32, SinkConfig::float64, SinkConfig::dsd1,
        SinkConfig::dsd4, SinkConfig::dsdLsbLittle, SinkConfig::dsdLsbBig, SinkConfig::dsdMsbLittle,
        SinkConfig::dsdMsbBig, 0x2620000, 0x300, 0x40000, 0,
        // no valid ones: two bit orders, two word orders, none of one, no class, another, PCM with
        // one
        0x2710000, 0x2d10000, 0x2410000, 0x2210000, 0x0610000, 0x0610000 | 0x1000000, 0x2000400,
        0x0100400};
    for (const std::uint64_t sample : samples) {
        for (const std::uint32_t channels : {1u, 2u, 4u, 6u, 8u, 16u}) {
            SinkConfig format(sample);
            format.setChannels(channels);
            for (int i = 0; i < 3; ++i) {
                format.setRate((random() % 2 != 0 ? 44100u : 48000u) << random() % 13);
                ask(format.word);
            }
            for (const std::uint32_t rate : {8000u, 2822400u}) {
                format.setRate(rate);
                ask(format.word);
            }
        }
    }
    for (int bit = 0; bit < 64; ++bit) ask(1ull << bit);
    for (int i = 0; i < 200; ++i) ask(random());
    std::set<std::string> marks = aboutPairsAndFormats;
    c.compare(marks);
}

TEST(DissectorFields, OfTheStreamAndTheLog) {
    Comparison c;
    for (const std::uint16_t v : extremes) {
        for (const std::uint16_t flags : words({0, 0x20, 0x40, 0x60})) {
            const Bytes audio(static_cast<std::size_t>(v % 1429), 0xa5);
            c.fromHost(makePacket(STREAM_DATA::id, flags, {v}, audio));
        }
        c.fromTarget(write(INFO_ANS{true, true, false, 0, v, static_cast<std::uint16_t>(~v)}));
        c.fromTarget(write(INFO_ANS{false, true, true, 0, v, v}));
        for (const std::uint16_t phase : words({0, 0x80, 0x100, 0x180})) {
            c.fromTarget(makePacket(INFO_ANS::id, static_cast<std::uint16_t>(phase | 1), {v}));
        }
        c.exchange(LOG_REQ{v % 2 == 1}, LOG_ANS{true, v, "ready"});
        c.fromHost(makePacket(LOG_REQ::id, 0, {v}));
    }
    for (std::size_t n = 0; n <= 24; ++n) {
        c.fromHost(makePacket(STREAM_DATA::id, 0x40, {1}, Bytes(n, 0x77)));
        Bytes again = makePacket(STREAM_DATA::id, 0x40, {1}, Bytes(n, 0x77));
        again.resize(resentPacketBytes(n));
        c.fromHost(again);
    }
    for (const std::string& text : texts) c.exchange(LOG_REQ{true}, LOG_ANS{true, 2, text});
    std::set<std::string> marks = aboutPairs;
    marks.insert({"asks_again", "long_form"});
    c.compare(marks);
}

TEST(DissectorFields, OfTransfers) {
    Comparison c;
    for (const std::uint16_t v : extremes) {
        const auto w = static_cast<std::uint16_t>(~v);
        c.exchange(TRANSFER_REQ{0}, TRANSFER_ANS{true, v, w, 0, 0});
        if (v != 0) c.exchange(TRANSFER_REQ{v}, TRANSFER_ANS{true, v, w, v, w});
        c.exchange(TRANSFEREND_REQ{v, w, 65535}, TRANSFEREND_ANS{true, v, w, 65535});
        c.exchange(TRANSFEREND_REQ{v, w, v}, TRANSFEREND_ANS{true, v, w, w});
        c.fromHost(write(TRANSFER_DATA{v, w, v, w}, Bytes(v % 100, 0x11)));
        c.fromTarget(write(TRANSFER_ACK{true, v, w}));
    }
    std::set<std::string> marks = aboutPairs;
    marks.insert({"crc_unchecked", "status_incomplete"});
    c.compare(marks);
}

TEST(DissectorFields, OfSettingsAndTexts) {
    Comparison c;
    for (const std::uint16_t v : extremes) {
        c.exchange(VALUE_REQ{v}, VALUE_ANS{true, v});
        c.exchange(INFOINDEX_REQ{v}, INFOINDEX_ANS{true, "ok"});
        c.exchange(ITEM_REQ{0}, ITEM_ANS{true, v, 0, 0, 0, ""});
        for (std::uint16_t mode = 0; mode < 5; ++mode) {
            c.exchange(ITEMVALUE_REQ{v, mode, v, "text"},
                       ITEMVALUE_ANS{true, v, v, static_cast<std::uint16_t>(~v), "value"});
        }
    }
    for (const std::string& text : texts) {
        c.exchange(INFOA_REQ{}, INFOA_ANS{true, text});
        c.exchange(INFOB_REQ{}, INFOB_ANS{true, text});
        c.exchange(INFOINDEX_REQ{5}, INFOINDEX_ANS{true, text});
        c.exchange(ITEM_REQ{3}, ITEM_ANS{true, 3, 4, 0, 0, text});
        c.exchange(ITEMVALUE_REQ{3, 1, 7, text}, ITEMVALUE_ANS{true, 3, 1, 2, text});
    }
    c.compare(aboutPairs);
}

// Whether a value has a sign stands in the description of its item, which came before.
TEST(DissectorFields, OfValuesHaveTheSignOfTheirItem) {
    Comparison c;
    for (std::uint16_t type = 0; type < 8; ++type) {
        for (const std::uint16_t v : extremes) {
            const auto w = static_cast<std::uint16_t>(~v);
            Asked asked;
            asked.isSignedItem = type == 2;
            c.exchange(write(ITEM_REQ{9}), write(ITEM_ANS{true, 9, type, v, w, "Gain"}));
            c.exchange(write(ITEMVALUE_REQ{9, 0, v, ""}), write(ITEMVALUE_ANS{true, 9, v, w, ""}),
                       asked);
        }
    }
    c.compare();
}

TEST(DissectorFields, OfEveryExampleOfTheProtocolsDescription) {
    Comparison c;
    std::set<std::uint16_t> ids;
    for (const Golden& golden : allGoldens()) {
        // Where a description depends on what was asked for, the tests above ask for it.
        if (golden.id == SINK_ANS::id || golden.id == TRANSFER_ANS::id ||
            golden.id == ITEM_ANS::id) {
            continue;
        }
        if (!readPacket(golden.bytes)) continue;
        const bool toHost = golden.id % 2 == 1;
        toHost ? c.fromTarget(golden.bytes) : c.fromHost(golden.bytes);
    }
    std::set<std::string> marks = aboutPairsAndFormats;
    marks.insert({"asks_again", "restarted", "crc_unchecked", "long_form", "unused_not_zero",
                  "unknown_flags", "unread_payload", "surplus", "small_length", "probe_wrong"});
    ids = c.compare(marks);
    ids.insert({SINK_ANS::id, TRANSFER_ANS::id, ITEM_ANS::id});
    for (const std::uint16_t id : AllMessages::ids) EXPECT_TRUE(ids.contains(id)) << id;
}

TEST(DissectorFields, MaskTextNamesWhatATargetTakes) {
    Talk talk;
    talk.ask(SUPPORT_REQ{0xff00});
    talk.answer(SUPPORT_ANS{true, 0x0000'001a'0000'2606});
    talk.ask(SUPPORT_REQ{0x20'0000});
    talk.answer(SUPPORT_ANS{true, 0x0000'0602'02a1'0002});
    talk.ask(SUPPORT_REQ{0});
    talk.answer(SUPPORT_ANS{true, 0});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[1]["support.mask_text"],
              "PCM 16, PCM 24, float 32; 2, 4 channels; 44100 Hz x1, x2");
    EXPECT_EQ(shown[3]["support.mask_text"],
              "DSD; MSB first, words big-endian, words of 32 bits; 2 channels; 44100 Hz x64, x128");
    EXPECT_EQ(shown[5]["support.mask_text"], "nothing");
}

TEST(DissectorFields, ValuesThatMeanSomethingElseAreSaidInWords) {
    Talk talk;
    talk.ask(SINK_REQ{7});
    talk.answer(SINK_ANS{true, 0, 0, 0, ""});
    talk.ask(LATENCY_REQ{0});
    talk.answer(LATENCY_ANS{true, 300, 15});
    talk.answer(DATASIZE_ANS{true, 1500, 65535, 0, 0});
    talk.answer(DATASIZE_ANS{true, 1500, 15000, 0, 0});
    std::string all;
    for (const std::string& line : dissectedLines(talk.capture, "-O velmora")) all += line + '\n';
    for (const char* text :
         {"Sink's port: 0: no such sink\n", "Latency wanted (100 µs): 0: only asks\n",
          "Latency (100 µs): 300 = 30 ms\n", "Latency of the hardware (100 µs): 15 = 1.5 ms\n",
          "Largest burst (bytes): 65535: no limit\n", "Largest burst (bytes): 15000\n"}) {
        EXPECT_NE(all.find(text), std::string::npos) << text;
    }
}

// The number is what people plot: each of the four ways to say it, over all that a word can hold.
TEST(DissectorFields, FeedbackIsANumberInAllFourEncodings) {
    std::vector<INFO_ANS> said;
    for (unsigned word = 0; word < 65536; word += 17) {
        said.push_back({.feedback = static_cast<std::uint16_t>(word)});
    }
    for (const unsigned word : {1u, 0x1fffu, 0x2000u, 0x2001u, 0x4000u, 0x5fffu, 0x6000u, 0x7fffu,
                                0x8000u, 0x8001u, 0xbfffu, 0xc000u, 0xc001u, 0xffffu}) {
        said.push_back({.feedback = static_cast<std::uint16_t>(word), .fill = 9, .fillTarget = 3});
    }
    std::mt19937 random(2);
    for (const std::uint16_t wanted : words({0, 1, 2, 3, 49, 50, 1000, 32767, 32768, 65535})) {
        for (const std::uint16_t fill : words({0, 1, 25, 50, 75, 32768, 65535})) {
            said.push_back({.fill = fill, .fillTarget = wanted});
        }
        for (int i = 0; i < 100; ++i) {
            said.push_back({.fill = static_cast<std::uint16_t>(random()), .fillTarget = wanted});
        }
    }
    Capture capture;
    for (const INFO_ANS& m : said) capture.add(targetAt(), hostAt(), write(m));
    const auto lines = dissectedLines(
        capture, "-T fields -e velmora.info.encoding -e velmora.info.value -e velmora.feedback");
    ASSERT_EQ(lines.size(), said.size());
    std::set<int> encodings;
    for (std::size_t i = 0; i < said.size(); ++i) {
        const FeedbackValue value = decodeFeedback(said[i]);
        char text[64];
        std::snprintf(text, sizeof text, "%d\t%d\t%.15g", value.encoding, int{value.value},
                      value.value / 16384.0);
        ASSERT_EQ(lines[i], text) << said[i].feedback << ' ' << said[i].fill << ' '
                                  << said[i].fillTarget;
        encodings.insert(value.encoding);
    }
    EXPECT_EQ(encodings.size(), 4u);
}

}  // namespace
}  // namespace velmora_test
