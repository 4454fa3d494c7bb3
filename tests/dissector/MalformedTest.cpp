// What is no sound datagram, or an odd one: marked, never an error of the dissector.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/dissector/Expected.h"
#include "tests/dissector/Talk.h"
#include "tests/wire/Golden.h"

namespace velmora_test {
namespace {

using namespace VELMORA::wire;

Bytes with(Bytes datagram, std::size_t at, std::uint8_t value) {
    datagram.at(at) = value;
    return datagram;
}
Bytes longer(Bytes datagram, std::size_t by, std::uint8_t fill = 0) {
    datagram.resize(datagram.size() + by, fill);
    return datagram;
}
Bytes shorter(Bytes datagram, std::size_t by) {
    datagram.resize(datagram.size() - by);
    return datagram;
}

TEST(DissectorMalformed, EachOddityHasItsMark) {
    const Bytes find = write(FIND_REQ{}), hello = write(HELLO_REQ{1, "Velmora"}),
                audio = makePacket(STREAM_DATA::id, 0x40, {1}, Bytes(9, 7));
    struct Case {
        const char* why;
        Bytes datagram;
        const char* marks;
        bool isDropped;  // by a reader
    };
    const Case cases[] = {
        {"one byte", {0x64}, "too_short", true},
        {"one short of a header", shorter(find, 1), "too_short", true},
        {"a header alone", find, "no_answer", false},
        {"another magic", with(find, 0, 101), "bad_magic", true},
        {"the magic's second byte", with(find, 1, 1), "bad_magic", true},
        {"claims 24 of 16 bytes", with(find, 2, 0x18), "bad_length", true},
        {"claims 65528 of 16 bytes", with(with(find, 2, 0xf8), 3, 0xff), "bad_length", true},
        {"cut by one byte", shorter(hello, 1), "bad_length", true},
        {"claims nothing", with(find, 2, 0), "no_answer small_length", false},
        {"claims less than a header", with(find, 2, 0x08), "no_answer small_length", false},
        {"claims a header, but with filler", with(find, 2, 0x17), "no_answer small_length", false},
        {"16 bytes of surplus", longer(find, 16), "no_answer surplus", false},
        {"one byte of surplus", longer(find, 1), "no_answer surplus", false},
        {"the longer form, but of a request", longer(hello, 8), "no_answer surplus", false},
        {"the longer form of audio", longer(audio, 8), "long_form", false},
        {"the longer form, not zero", longer(audio, 8, 1), "again surplus", false},
        {"audio and 16 more", longer(audio, 16), "again surplus", false},
        {"filler that is not zero", with(hello, 31 - 8, 1), "filler_not_zero no_answer", false},
        {"no message", with(find, 4, 99), "unknown_id", false},
        {"a message far away", with(find, 5, 0x80), "unknown_id", false},
        {"flags of a request", with(find, 6, 1), "no_answer unknown_flags", false},
        {"flags of an answer", with(write(HELLO_ANS{}), 7, 0x40), "unasked unknown_flags", false},
        {"bytes where nothing is told", with(find, 15, 1), "no_answer unused_not_zero", false},
        {"the 1 of SINK_REQ", with(write(SINK_REQ{1}), 14, 0), "no_answer unused_not_zero", false},
        {"a payload that nobody reads", makePacket(INFOA_REQ::id, 0, {}, Bytes(3, 65)),
         "no_answer unread_payload", false},
        {"a text to a question that reads", makePacket(ITEMVALUE_REQ::id, 0, {1}, Bytes(3, 65)),
         "no_answer unread_payload", false},
        {"no format", write(CONNECT_REQ{VELMORA::SinkConfig(0x1ff)}), "invalid_format no_answer",
         false},
        {"no format yet", write(PROFILE_REQ{}), "no_answer", false},
    };
    Capture capture;
    std::uint16_t port = 41000;
    for (const Case& c : cases) {
        // Audio of one stream, so that it comes again; the others have nothing to do with each
        // other.
        const bool isAudio = c.datagram.size() > 5 && c.datagram[4] == STREAM_DATA::id;
        capture.add(hostAt(isAudio ? hostPort : port++), targetAt(), c.datagram);
    }
    const auto shown = dissect(capture);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].why);
        EXPECT_TRUE(shown[i].isOurs);
        // An answer on this side of the port is an answer all the same.
        EXPECT_EQ(shown[i].markNames(), cases[i].marks);
        EXPECT_EQ(shown[i].isMalformed(), cases[i].isDropped);
        EXPECT_EQ(!readPacket(cases[i].datagram).has_value(), cases[i].isDropped);
        if (!cases[i].isDropped) {
            const auto packet = readPacket(cases[i].datagram);
            if (packet->id() != 99 && packet->id() < 0x8000) {
                EXPECT_EQ(ownFields(shown[i]), expectedFields(*packet, {}));
            }
        }
    }
}

// Which words of arg and which flags a message has, as the drawings in wire/ show them.
TEST(DissectorMalformed, WhatAMessageDoesNotHaveIsMarkedAndWhatItHasIsNot) {
    struct Row {
        std::uint16_t id;
        std::set<unsigned> words;  // by their offset
        unsigned flags;
    };
    const std::set<unsigned> all = {8, 10, 12, 14};
    const Row rows[] = {
        {0, {8}, 0},  {1, all, 1},          {2, {8, 14}, 0},      {3, {8, 12, 14}, 1},
        {4, all, 0},  {5, all, 1},          {6, {8}, 0},          {7, {8, 10}, 1},
        {8, all, 0},  {9, {8}, 0x181},      {10, {8}, 0x60},      {11, {8, 10, 12}, 0x189},
        {12, {}, 0},  {13, {}, 1},          {14, {}, 0},          {15, all, 1},
        {16, {}, 0},  {17, {}, 1},          {18, all, 0},         {19, all, 1},
        {20, all, 0}, {21, {8, 10, 12}, 1}, {22, all, 1},         {23, {}, 1},
        {24, all, 1}, {25, {}, 1},          {26, {8}, 0},         {27, all, 1},
        {28, all, 0}, {29, {8, 10}, 1},     {30, {8, 10, 12}, 0}, {31, {8, 10, 12}, 1},
        {32, {}, 0},  {33, {}, 1},          {34, {}, 0},          {35, {}, 1},
        {36, {8}, 0}, {37, {8}, 1},         {40, {8}, 0},         {41, {8}, 1},
        {42, {}, 0},  {44, {8}, 0},         {45, {}, 1},          {48, {8}, 0},
        {49, all, 1}, {50, {8, 10, 12}, 0}, {51, {8, 10, 14}, 1}, {0x8001, {8}, 0},
    };
    Capture capture;
    std::vector<std::pair<std::string, bool>> expected;  // what was set, and whether it is its own
    std::uint16_t port = 41000;
    for (const Row& row : rows) {
        for (const unsigned at : all) {
            Arg arg{};
            if (row.id == SINK_REQ::id) arg[3] = 1;  // always
            // As the answers to a channel and to an item, not to 0.
            if (row.id == TRANSFER_ANS::id) arg[2] = 1;
            if (row.id == ITEM_ANS::id) arg[1] = 1;
            const bool isSet = arg[(at - 8) / 2] != 0;
            if (!isSet) arg[(at - 8) / 2] = 0x0101;
            const bool isHost = row.flags % 2 == 0 && row.id != 0x8001;
            capture.add(hostAt(port++), targetAt(),
                        makePacket(row.id, isHost ? std::uint16_t{0} : std::uint16_t{1}, arg));
            expected.emplace_back(
                "id " + std::to_string(row.id) + ", word at " + std::to_string(at),
                row.words.contains(at));
        }
        for (unsigned bit = 0; bit < 16; ++bit) {
            Arg arg{};
            if (row.id == SINK_REQ::id) arg[3] = 1;
            capture.add(hostAt(port++), targetAt(),
                        makePacket(row.id, static_cast<std::uint16_t>(1u << bit), arg));
            expected.emplace_back("id " + std::to_string(row.id) + ", flag " + std::to_string(bit),
                                  (row.flags >> bit & 1) != 0);
        }
    }
    const auto shown = dissect(capture);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const bool isWord = expected[i].first.find("word") != std::string::npos;
        EXPECT_EQ(shown[i].isMarked(isWord ? "unused_not_zero" : "unknown_flags"),
                  !expected[i].second)
            << expected[i].first;
    }
}

TEST(DissectorMalformed, ACaptureThatKeptLessIsNoFaultOfTheSender) {
    Talk talk;
    const Bytes hello = write(HELLO_REQ{0x4554'4e45'5652'4f4b, "a host with a rather long name"});
    for (const std::size_t kept : {1u, 15u, 16u, 17u, 40u, 47u}) {
        talk.capture.keepOnly(kept);
        talk.say(hostAt(static_cast<std::uint16_t>(41000 + kept)), targetAt(), hello);
        talk.say(hostAt(static_cast<std::uint16_t>(42000 + kept)), targetAt(),
                 write(DATASIZE_REQ{100}));
        talk.say(hostAt(static_cast<std::uint16_t>(43000 + kept)), targetAt(),
                 makePacket(STREAM_DATA::id, 0, {5}, Bytes(100, 1)));
        talk.say(hostAt(static_cast<std::uint16_t>(44000 + kept)), targetAt(), longer(hello, 8));
    }
    for (const Shown& one : talk.dissect()) {
        EXPECT_FALSE(one.isMalformed());
        EXPECT_FALSE(one.has("datasize.probe_good")) << "not all of it was looked at";
        EXPECT_TRUE(one.isMarked("cut_capture"));
    }
}

TEST(DissectorMalformed, WhatSomebodyQuotesInAComplaintIsShownAndNotCounted) {
    Talk talk;
    talk.connect();
    talk.audio(0);
    talk.capture.addUnreachable(talk.host, talk.target,
                                makePacket(STREAM_DATA::id, 0x40, {0}, Bytes(8, 1)));
    talk.capture.addUnreachable(hostAt(), targetAt(), write(SINK_REQ{1}));
    talk.capture.addUnreachable(targetAt(), hostAt(), refused(write(SINK_ANS{})));
    talk.now += 3000;
    talk.audio(1);
    const auto shown = talk.dissect();
    EXPECT_TRUE(shown[3].isOurs) << shown[3].protocols;
    EXPECT_EQ(shown[3]["stream.sequence"], "0");
    EXPECT_EQ(shown[3].markNames(), "");
    EXPECT_EQ(shown[4]["sink.no"], "1");
    EXPECT_EQ(shown[4].markNames(), "");
    EXPECT_EQ(shown[5]["id"], "3");
    EXPECT_EQ(shown[5].markNames(), "");
    EXPECT_EQ(shown[6].markNames(), "");
}

TEST(DissectorMalformed, TextsThatAreNoTextsAreShownAsBytesToo) {
    Talk talk;
    talk.ask(FIND_REQ{});
    talk.answer(FIND_ANS{true, 0x00ff'0a1b'0000'0041, std::string("a\0b\xff\xfe\n\x1b[2J\"", 11)});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[1]["payload"], "61:00:62:ff:fe:0a:1b:5b:32:4a:22");
    EXPECT_EQ(shown[1]["product_text"], "0x00ff0a1b00000041");
    const auto lines = dissectedLines(talk.capture, "");
    EXPECT_EQ(lines.size(), 2u) << "no name breaks a line";
    for (const std::string& line : lines) EXPECT_EQ(line.find('\x1b'), std::string::npos);
}

// Random bytes, and sound datagrams with something changed, at ports that are always ours, at
// learned ones and at any: each is taken and read as the decoder reads it, or marked as what it
// drops.
TEST(DissectorMalformed, TwoThousandHostileDatagramsRaiseNothing) {
    constexpr std::uint32_t seed = 20261122;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    std::vector<Bytes> seeds;
    for (const Golden& golden : allGoldens()) seeds.push_back(golden.bytes);

    Talk talk;
    talk.ask(SINK_REQ{1});
    talk.answer(SINK_ANS{true, 1, talkSinkPort, 1, "Main"});
    talk.connect();
    const std::size_t before = talk.capture.count();
    std::vector<Bytes> sent;
    while (sent.size() < 2000) {
        Bytes datagram;
        if (below(8) == 0) {
            datagram.resize(below(100));
            for (std::uint8_t& byte : datagram) byte = static_cast<std::uint8_t>(random());
            // Half of them look like ours at the front.
            if (datagram.size() > 1 && below(2) == 0) datagram[0] = 100, datagram[1] = 0;
        } else {
            datagram = seeds[below(seeds.size())];
            for (std::size_t changes = below(6); changes > 0 && !datagram.empty(); --changes) {
                switch (below(5)) {
                    case 0:
                        datagram[below(datagram.size())] = static_cast<std::uint8_t>(random());
                        break;
                    case 1:
                        datagram[below(datagram.size())] ^=
                            static_cast<std::uint8_t>(1 << below(8));
                        break;
                    case 2:
                        datagram.resize(below(datagram.size() + 1));
                        break;
                    case 3:
                        datagram.resize(datagram.size() + below(40),
                                        static_cast<std::uint8_t>(random()));
                        break;
                    default:
                        if (datagram.size() > 7) datagram[4] = static_cast<std::uint8_t>(below(53));
                        break;
                }
            }
        }
        const IPAddress host = hostAt(static_cast<std::uint16_t>(40000 + below(3)));
        const std::uint16_t ports[] = {talkControlPort, NotifyPort, talkSinkPort, streamPort};
        const IPAddress target = targetAt(ports[below(std::size(ports))]);
        below(2) == 0 ? talk.say(host, target, datagram) : talk.say(target, host, datagram);
        sent.push_back(std::move(datagram));
    }
    const auto shown = talk.dissect();
    ASSERT_EQ(shown.size(), before + sent.size());
    std::size_t sound = 0, dropped = 0;
    std::set<std::string> ids;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        const Shown& one = shown[before + i];
        SCOPED_TRACE("packet " + std::to_string(before + i + 1));
        // Nothing at all is no payload, which Wireshark hands to nobody.
        if (sent[i].empty()) continue;
        ASSERT_TRUE(one.isOurs) << one.protocols;
        const auto packet = readPacket(sent[i]);
        ASSERT_EQ(one.isMalformed(), !packet.has_value()) << one.markNames();
        if (!packet) {
            ++dropped;
            continue;
        }
        ++sound;
        // The header and what is cut by the size word do not depend on what came before.
        const Fields expected = expectedFields(*packet, {});
        for (const char* key : {"size_word", "length", "filler_count", "id", "flags", "arg",
                                "payload_length", "payload", "filler", "surplus"}) {
            const auto wanted = expected.find(key);
            ASSERT_EQ(one[key], wanted == expected.end() ? "-" : wanted->second) << key;
        }
        ids.insert(one["id"]);
    }
    for (const std::string& line : dissectedLines(talk.capture, "-V")) {
        ASSERT_EQ(line.find("Lua"), std::string::npos) << line;
    }
    EXPECT_GT(sound, 500u);
    EXPECT_GT(dropped, 500u);
    EXPECT_GT(ids.size(), 50u);
}

}  // namespace
}  // namespace velmora_test
