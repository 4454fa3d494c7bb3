// Every message's answer, as bytes written by hand.
#include <gtest/gtest.h>

#include "target/Messages.h"
#include "tests/target/TargetWorld.h"

namespace {

using namespace velmora_test;

struct AnswerCase {
    const char* why;
    std::uint16_t port;
    const char* request;
    const char* answer;  // empty: nothing comes back
};

constexpr AnswerCase answerCases[] = {
    {"FIND_REQ by a search", controlPort, "6400 1000 0000 0000 0000 0000 0000 0000",
     "6400 1b00 0100 0100 4b4f5256454e5445 62656e6368 000000"},
    {"FIND_REQ by a watch", controlPort, "6400 1000 0000 0000 0100 0000 0000 0000",
     "6400 1b00 0100 0100 4b4f5256454e5445 62656e6368 000000"},
    {"SINK_REQ for the count", controlPort, "6400 1000 0200 0000 0000 0000 0000 0100",
     "6400 1000 0300 0100 0200 0000 0000 0000"},
    {"SINK_REQ for sink 1, port 20001", controlPort, "6400 1000 0200 0000 0100 0000 0000 0100",
     "6400 1c00 0300 0100 0000 0000 214e 0100 4d61696e 00000000"},
    {"SINK_REQ for a sink that is not there", controlPort,
     "6400 1000 0200 0000 0300 0000 0000 0100", "6400 1000 0300 0100 0000 0000 0000 0000"},
    {"CONFIG_REQ, the marker left to the host", controlPort,
     "6400 1000 1000 0000 0000 0000 0000 0000",
     "6400 2d00 1100 0100 0000 0000 0000 0000 687474703a2f2f5b6d79616464726573735d2f 0000000000"},
    {"HELLO_REQ", controlPort, "6400 1800 1600 0100 0000 0000 0000 0000 6161616161616161",
     "6400 1000 1700 0100 0000 0000 0000 0000"},
    {"NOPBREAK_REQ in a search: refused under id 5, so that the search goes on", controlPort,
     "6400 1000 2a00 0000 0000 0000 0000 0000", "6400 1000 0500 0000 0000 0000 0000 0000"},
    {"TRANSFER_REQ: no inbox", controlPort, "6400 1000 1a00 0000 0000 0000 0000 0000",
     "6400 1000 1b00 0000 0000 0000 0000 0000"},
    {"TRANSFEREND_REQ: no inbox", controlPort, "6400 1000 1e00 0000 0100 0000 ffff 0000",
     "6400 1000 1f00 0000 0000 0000 0000 0000"},
    {"VALUE_REQ", controlPort, "6400 1000 2400 0000 0102 0000 0000 0000",
     "6400 1000 2500 0100 0102 0000 0000 0000"},
    {"INFOINDEX_REQ for how many", controlPort, "6400 1000 2c00 0000 0000 0000 0000 0000",
     "6400 1f00 2d00 0100 0000 0000 0000 0000 32 00000000000000"},
    {"INFOINDEX_REQ for sink 2", controlPort, "6400 1000 2c00 0000 0200 0000 0000 0000",
     "6400 2800 2d00 0100 0000 0000 0000 0000 5365636f6e642c20706f72742032303030322c2069646c65 "
     ""},
    {"INFOINDEX_REQ for a sink that is not there", controlPort,
     "6400 1000 2c00 0000 0300 0000 0000 0000", "6400 1000 2d00 0000 0000 0000 0000 0000"},
    {"ITEM_REQ for the count", controlPort, "6400 1000 3000 0000 0000 0000 0000 0000",
     "6400 1000 3100 0100 0700 0000 0000 0000"},
    {"ITEMVALUE_REQ that reads item 0", controlPort, "6400 1000 3200 0000 0000 0000 0000 0000",
     "6400 1000 3300 0000 0000 0000 0000 0000"},
    {"TRANSFER_DATA is not answered", controlPort, "6400 1000 1c00 0000 0000 0000 0000 0000", ""},
    {"LOG_REQ on the control port's number", controlPort, "6400 1000 2800 0000 0100 0000 0000 0000",
     "6400 1000 2900 0100 0000 0000 0000 0000"},

    {"SUPPORT_REQ: the summary, PCM and DSD by MSB", sinkPort,
     "6400 1000 0400 0000 0000 0000 0000 0000", "6400 1000 0500 0100 002e 2100 0000 0000"},
    {"SUPPORT_REQ: the PCM mask, by the summary's bits", sinkPort,
     "6400 1000 0400 0000 002e 0000 0000 0000", "6400 1000 0500 0100 1f2e 0000 fe01 0000"},
    {"SUPPORT_REQ: no DSD by LSB", sinkPort, "6400 1000 0400 0000 0000 1000 0000 0000",
     "6400 1000 0500 0100 0000 0000 0000 0000"},
    {"SUPPORT_REQ: DSD by MSB", sinkPort, "6400 1000 0400 0000 0000 2000 0000 0000",
     "6400 1000 0500 0100 0300 a102 021e 0000"},
    {"LATENCY_REQ that only asks", sinkPort, "6400 1000 0600 0000 0000 0000 0000 0000",
     "6400 1000 0700 0100 c800 0a00 0000 0000"},
    {"LATENCY_REQ for 5 ms", sinkPort, "6400 1000 0600 0000 3200 0000 0000 0000",
     "6400 1000 0700 0100 3200 0a00 0000 0000"},
    {"LATENCY_REQ for 100 us gets the least", sinkPort, "6400 1000 0600 0000 0100 0000 0000 0000",
     "6400 1000 0700 0100 0500 0a00 0000 0000"},
    {"LATENCY_REQ for 6.5 s gets 2 s", sinkPort, "6400 1000 0600 0000 ffff 0000 0000 0000",
     "6400 1000 0700 0100 204e 0a00 0000 0000"},
    {"DATASIZE_REQ", sinkPort, "6400 1000 0e00 0000 0000 0000 0000 0000",
     "6400 1000 0f00 0100 dc05 983a 0000 0000"},
    {"DATASIZE_REQ with a pattern of 4: length 4, sum 122 + 123 + 124 + 125", sinkPort,
     "6400 1c00 0e00 0000 0000 0000 0000 0000 7a7b7c7d 00000000",
     "6400 1000 0f00 0100 dc05 983a 0400 ee01"},
    {"PROFILE_REQ", sinkPort, "6400 1000 1400 0000 0000 0000 0000 0000",
     "6400 1000 1500 0100 6400 f401 0c00 0000"},
    {"CONNECTPRE_REQ with 5 ms: granted, the rest as it was", sinkPort,
     "6400 1000 1200 0000 0201 3200 0c00 0000", "6400 1000 1300 0100 0201 3200 0c00 0000"},
    {"CONNECTPRE_REQ without a wish", sinkPort, "6400 1000 1200 0000 0201 0000 0c00 0000",
     "6400 1000 1300 0100 0201 c800 0c00 0000"},
    {"CLIENT_REQ", sinkPort, "6400 1800 1800 0100 4b4f5256454e5445 6161616161616161",
     "6400 1000 1900 0100 0000 0000 0000 0000"},
    {"NOPBREAK_REQ ahead of a negotiation", sinkPort, "6400 1000 2a00 0000 0000 0000 0000 0000",
     "6400 1000 0500 0000 0000 0000 0000 0000"},
    {"CONNECT_REQ: the sink's own port", sinkPort, "6400 1000 0800 0000 0202 0000 0c00 0000",
     "6400 1000 0900 0100 214e 0000 0000 0000"},
    {"CONNECT_REQ: a sink with another port for audio", secondSinkPort,
     "6400 1000 0800 0000 0202 0000 0c00 0000", "6400 1000 0900 0100 234e 0000 0000 0000"},
    {"CONNECT_REQ for a format outside the mask", sinkPort,
     "6400 1000 0800 0000 2002 0000 0c00 0000", "6400 1000 0900 0000 0000 0000 0000 0000"},
    {"CONNECT_REQ for no format at all", sinkPort, "6400 1000 0800 0000 0000 0000 0000 0000",
     "6400 1000 0900 0000 0000 0000 0000 0000"},
    {"DSICONNECT_REQ with nothing to end", sinkPort, "6400 1000 0c00 0000 0000 0000 0000 0000",
     "6400 1000 0d00 0100 0000 0000 0000 0000"},
    {"STREAM_DATA without a stream", sinkPort, "6400 1000 0a00 6000 0000 0000 0000 0000", ""},

    {"discovery is not answered by a sink", sinkPort, "6400 1000 0000 0000 0000 0000 0000 0000",
     ""},
    {"negotiation is not answered by the control port", controlPort,
     "6400 1000 0400 0000 0000 0000 0000 0000", ""},
    {"a port that is nobody's", 20009, "6400 1000 0400 0000 0000 0000 0000 0000", ""},
    {"an unknown message", sinkPort, "6400 1000 6300 0000 0000 0000 0000 0000", ""},
    {"an answer is no request", sinkPort, "6400 1000 0500 0100 0000 0000 0000 0000", ""},
    {"15 bytes", controlPort, "6400 1000 0000 0000 0000 0000 0000 00", ""},
    {"another magic", controlPort, "6500 1000 0000 0000 0000 0000 0000 0000", ""},
    {"a size of 24 in 16 bytes", controlPort, "6400 1800 0000 0000 0000 0000 0000 0000", ""},
    {"surplus bytes are allowed", controlPort,
     "6400 1000 0200 0000 0000 0000 0000 0100 ffffffffffffffff",
     "6400 1000 0300 0100 0200 0000 0000 0000"},
};

TEST(Answer, IsAsTheTableSays) {
    for (const AnswerCase& c : answerCases) {
        SCOPED_TRACE(c.why);
        TargetWorld world;
        EXPECT_EQ(world.ask(hex(c.request), c.port), hex(c.answer));
    }
}

TEST(Answer, GoesToTheSenderWithItsScopeFromThePortAsked) {
    TargetWorld world;
    const auto out = world.tell(write(VELMORA::wire::FIND_REQ{}), controlPort, world.host);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].to, world.host);
    EXPECT_EQ(out[0].to.scope, 3u);
    EXPECT_EQ(out[0].localPort, controlPort);
}

TEST(Answer, WithoutAConfigurationTextIsARefusal) {
    auto settings = plainSettings();
    settings.configText.clear();
    TargetWorld world(settings);
    EXPECT_EQ(world.ask(hex("6400 1000 1000 0000 0000 0000 0000 0000"), controlPort),
              hex("6400 1000 1100 0000 0000 0000 0000 0000"));
}

TEST(Answer, AsksForInvertedPhaseAtConnect) {
    auto settings = plainSettings();
    settings.phaseInvert = true;
    TargetWorld world(settings);
    EXPECT_EQ(world.ask(hex("6400 1000 0800 0000 0202 0000 0c00 0000"), sinkPort),
              hex("6400 1000 0900 0101 214e 0000 0000 0000"));
}

TEST(Answer, ToASilencedMessageNeverComes) {
    for (const auto& message : velmora_target::messages()) {
        SCOPED_TRACE(message.name);
        auto settings = plainSettings();
        settings.silent = {message.id};
        TargetWorld world(settings);
        const Bytes request = VELMORA::wire::makePacket(message.id, 0);
        EXPECT_TRUE(world.ask(request, controlPort).empty());
        EXPECT_TRUE(world.ask(request, sinkPort).empty());
    }
}

TEST(Answer, ToARefusedMessageIsTheAnswerWithoutBit0) {
    struct Row {
        const char* name;
        std::uint16_t port;
        const char* answer;
    };
    const Row rows[] = {
        {"FIND_REQ", controlPort, "6400 1000 0100 0000 0000 0000 0000 0000"},
        {"HELLO_REQ", controlPort, "6400 1000 1700 0000 0000 0000 0000 0000"},
        {"SUPPORT_REQ", sinkPort, "6400 1000 0500 0000 0000 0000 0000 0000"},
        {"CONNECT_REQ", sinkPort, "6400 1000 0900 0000 0000 0000 0000 0000"},
        {"TRANSFER_REQ", controlPort, "6400 1000 1b00 0000 0000 0000 0000 0000"},
        {"TRANSFEREND_REQ", controlPort, "6400 1000 1f00 0000 0000 0000 0000 0000"},
        {"INFOA_REQ", controlPort, "6400 1000 2100 0000 0000 0000 0000 0000"},
        {"INFOB_REQ", controlPort, "6400 1000 2300 0000 0000 0000 0000 0000"},
        {"VALUE_REQ", controlPort, "6400 1000 2500 0000 0000 0000 0000 0000"},
        {"INFOINDEX_REQ", controlPort, "6400 1000 2d00 0000 0000 0000 0000 0000"},
        {"ITEM_REQ", controlPort, "6400 1000 3100 0000 0000 0000 0000 0000"},
        {"ITEMVALUE_REQ", controlPort, "6400 1000 3300 0000 0000 0000 0000 0000"},
        {"DSICONNECT_REQ", sinkPort, "6400 1000 0d00 0000 0000 0000 0000 0000"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto message = velmora_target::messageNamed(row.name);
        ASSERT_TRUE(message);
        auto settings = plainSettings();
        settings.refused = {message->id};
        TargetWorld world(settings);
        EXPECT_EQ(world.ask(VELMORA::wire::makePacket(message->id, 0), row.port), hex(row.answer));
        EXPECT_FALSE(world.target.isConnected());
    }
}

TEST(Messages, AreKnownByTheirNames) {
    EXPECT_EQ(velmora_target::messageNamed("DATASIZE_REQ")->id, 14);
    EXPECT_EQ(velmora_target::messageNamed("NOPBREAK_REQ")->answer, 5);
    EXPECT_EQ(velmora_target::messageOf(10)->name, "STREAM_DATA");
    EXPECT_EQ(velmora_target::messageNamed("TRANSFER_DATA")->answer, 29);
    EXPECT_EQ(velmora_target::messageNamed("TRANSFER_ACK")->id, 28);  // the same by another name
    EXPECT_EQ(velmora_target::messageOf(28)->name, "TRANSFER_DATA");
    EXPECT_FALSE(velmora_target::messageNamed("FIND_ANS"));
    EXPECT_FALSE(velmora_target::messageOf(99));
}

// ---- the log channel ----

TEST(LogChannel, TellsWhoAskedAndNobodyElse) {
    TargetWorld world;
    world.ask(hex("6400 1000 2800 0000 0100 0000 0000 0000"), controlPort);
    const auto out = world.tell(hex("6400 1f00 1600 0100 0000 0000 0000 0000 61 00000000000000"),
                                controlPort, world.host);
    ASSERT_EQ(out.size(), 2u);  // HELLO_ANS and the line "asked for by a"
    EXPECT_EQ(out[1].localPort, controlPort);
    EXPECT_EQ(out[1].data,
              hex("6400 2200 2900 0100 0200 0000 0000 0000 61736b656420666f722062792061 0000"));
    EXPECT_EQ(world.mail.lines, std::vector<std::string>{"asked for by a"});
}

TEST(LogChannel, ShowsNamesWithoutTheirControlCharacters) {
    TargetWorld world;
    world.ask(hex("6400 1900 1600 0100 0000 0000 0000 0000 1b5b324a0a80ff 00"), controlPort);
    EXPECT_EQ(world.mail.lines, std::vector<std::string>{R"(asked for by \x1b[2J\x0a\x80\xff)"});
}

TEST(LogChannel, EndsForAReaderThatWantsNoMore) {
    TargetWorld world;
    world.ask(hex("6400 1000 2800 0000 0100 0000 0000 0000"), controlPort);
    world.ask(hex("6400 1000 2800 0000 0000 0000 0000 0000"), controlPort);
    EXPECT_EQ(world
                  .tell(hex("6400 1f00 1600 0100 0000 0000 0000 0000 61 00000000000000"),
                        controlPort, world.host)
                  .size(),
              1u);
}

TEST(LogChannel, HasRoomForEightReadersAndTheOldestGivesWay) {
    velmora_target::LogChannel log;
    for (std::uint16_t port = 1; port <= 9; ++port) {
        log.onRequest(IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, port, 3), true);
    }
    velmora_target::Mail mail;
    log.tell("x", controlPort, mail);
    ASSERT_EQ(mail.datagrams.size(), 8u);
    EXPECT_EQ(mail.datagrams[0].to.portNumber(), 2);
}

TEST(LogChannel, CutsALineThatNoDatagramHolds) {
    velmora_target::LogChannel log;
    log.onRequest(IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 1, 3), true);
    velmora_target::Mail mail;
    log.tell(std::string(5000, 'x'), controlPort, mail);
    EXPECT_LE(mail.datagrams.at(0).data.size(), 1500u);
}

TEST(Target, LeftAloneSaysNothing) {
    TargetWorld world;
    world.pass(60'000'000);
    EXPECT_TRUE(world.mail.datagrams.empty());
    EXPECT_TRUE(world.mail.lines.empty());
    EXPECT_EQ(world.tape.opened, 0);
}

}  // namespace
