// Which answer belongs to which request, and how long it took.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/dissector/Talk.h"

namespace velmora_test {
namespace {

using namespace VELMORA::wire;

TEST(DissectorPairing, NamesBothFramesAndTheTimeBetween) {
    Talk talk;
    talk.ask(SINK_REQ{1});
    talk.now += 4321;
    talk.answer(SINK_ANS{true, 1, 50000, 1, "Main"});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[0]["response_in"], "2");
    EXPECT_FALSE(shown[0].has("request_in"));
    EXPECT_EQ(shown[1]["request_in"], "1");
    EXPECT_EQ(shown[1]["response_time"], "0.005321000");
    EXPECT_EQ(shown[0].markNames() + shown[1].markNames(), "");
}

TEST(DissectorPairing, EveryRequestHasItsAnswer) {
    Talk talk;
    talk.ask(FIND_REQ{}), talk.answer(FIND_ANS{});
    talk.ask(SINK_REQ{1}), talk.answer(SINK_ANS{true, 1, 5, 1, ""});
    talk.ask(CONFIG_REQ{}), talk.answer(CONFIG_ANS{});
    talk.ask(HELLO_REQ{}), talk.answer(HELLO_ANS{});
    talk.ask(SUPPORT_REQ{}), talk.answer(SUPPORT_ANS{});
    talk.ask(LATENCY_REQ{}), talk.answer(LATENCY_ANS{});
    talk.ask(DATASIZE_REQ{}), talk.answer(DATASIZE_ANS{});
    talk.ask(PROFILE_REQ{}), talk.answer(PROFILE_ANS{});
    talk.ask(CONNECTPRE_REQ{}), talk.answer(CONNECTPRE_ANS{});
    talk.ask(CLIENT_REQ{}), talk.answer(CLIENT_ANS{});
    talk.ask(CONNECT_REQ{}), talk.answer(CONNECT_ANS{});
    talk.ask(DSICONNECT_REQ{}), talk.answer(DSICONNECT_ANS{});
    talk.ask(LOG_REQ{true}), talk.answer(LOG_ANS{});
    talk.ask(TRANSFER_REQ{}), talk.answer(TRANSFER_ANS{});
    talk.ask(TRANSFEREND_REQ{}), talk.answer(TRANSFEREND_ANS{});
    talk.ask(INFOA_REQ{}), talk.answer(INFOA_ANS{});
    talk.ask(INFOB_REQ{}), talk.answer(INFOB_ANS{});
    talk.ask(VALUE_REQ{}), talk.answer(VALUE_ANS{});
    talk.ask(INFOINDEX_REQ{}), talk.answer(INFOINDEX_ANS{});
    talk.ask(ITEM_REQ{}), talk.answer(ITEM_ANS{});
    talk.ask(ITEMVALUE_REQ{}), talk.answer(ITEMVALUE_ANS{});
    talk.say(talk.host, talk.target, write(TRANSFER_DATA{0x8001, 3, 3, 0}, Bytes(8)));
    talk.answer(TRANSFER_ACK{true, 1, 3});
    talk.audio(0, 0x60), talk.feedback(0x2000);
    const auto shown = talk.dissect();
    for (std::size_t i = 0; i < shown.size(); i += 2) {
        SCOPED_TRACE("packet " + std::to_string(i + 1) + ", id " + shown[i]["id"]);
        EXPECT_EQ(shown[i]["response_in"], std::to_string(i + 2));
        EXPECT_EQ(shown[i + 1]["request_in"], std::to_string(i + 1));
        EXPECT_EQ(shown[i + 1]["response_time"], "0.001000000");
        EXPECT_FALSE(shown[i].isMarked("no_answer") || shown[i + 1].isMarked("unasked"));
    }
}

TEST(DissectorPairing, NopbreakIsAnsweredUnderTheIdOfSupport) {
    Talk talk;
    talk.ask(NOPBREAK_REQ{});
    talk.answer(SUPPORT_ANS{});
    talk.ask(SUPPORT_REQ{0xff00});
    talk.answer(SUPPORT_ANS{true, 0x400});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[1]["request_in"], "1");
    EXPECT_EQ(shown[3]["request_in"], "3");
    EXPECT_FALSE(shown[1].has("support.asks"));
    EXPECT_EQ(shown[3]["support.asks"], "PCM");
}

TEST(DissectorPairing, TriesAreCountedAndTheLastOneIsAnswered) {
    Talk talk;
    for (int i = 0; i < 3; ++i) talk.ask(LATENCY_REQ{300});
    talk.answer(LATENCY_ANS{true, 300, 15});
    talk.ask(LATENCY_REQ{300});
    talk.ask(LATENCY_REQ{301});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[0].markNames(), "");
    EXPECT_EQ(shown[1]["repeat_of"], "1");
    EXPECT_EQ(shown[1]["try"], "2");
    EXPECT_EQ(shown[2]["repeat_of"], "1");
    EXPECT_EQ(shown[2]["try"], "3");
    EXPECT_EQ(shown[2].markNames(), "repeated");
    EXPECT_EQ(shown[2]["response_in"], "4");
    EXPECT_EQ(shown[3]["request_in"], "3");
    EXPECT_FALSE(shown[4].isMarked("repeated")) << "the one before it was answered";
    EXPECT_FALSE(shown[5].isMarked("repeated")) << "it asks for something else";
}

TEST(DissectorPairing, SaysWhatNobodyAnswered) {
    Talk talk;
    talk.ask(CONFIG_REQ{});
    talk.ask(SINK_REQ{1});
    talk.answer(SINK_ANS{true, 1, 50000, 1, "Main"});
    talk.audio(0, 0x60);
    talk.audio(1, 0x40);
    const auto shown = talk.dissect();
    EXPECT_TRUE(shown[0].isMarked("no_answer"));
    EXPECT_FALSE(shown[1].isMarked("no_answer"));
    EXPECT_TRUE(shown[3].isMarked("no_answer")) << "it asked for feedback";
    EXPECT_FALSE(shown[4].isMarked("no_answer"));
}

TEST(DissectorPairing, AQuestionToEverybodyHasManyAnswers) {
    Capture capture;
    for (int pass = 0; pass < 2; ++pass) {
        capture.add(hostAt(), everybody(), write(FIND_REQ{}));
        capture.add(targetAt(), hostAt(), write(FIND_ANS{true, 1, "one"}));
        capture.add(otherTargetAt(), hostAt(), write(FIND_ANS{true, 2, "two"}));
    }
    capture.add(hostAt(), targetAt(), write(FIND_REQ{}));
    capture.add(targetAt(), hostAt(), write(FIND_ANS{true, 1, "one"}));
    capture.add(otherTargetAt(), hostAt(), write(FIND_ANS{true, 2, "two, late"}));
    const auto shown = dissect(capture);
    EXPECT_EQ(shown[0]["response_in"], "2,3");
    EXPECT_EQ(shown[3]["response_in"], "5,6,9");
    EXPECT_EQ(shown[2]["request_in"], "1");
    EXPECT_EQ(shown[2]["response_time"], "0.002000000");
    EXPECT_EQ(shown[5]["request_in"], "4");
    EXPECT_EQ(shown[6]["response_in"], "8") << "this one went to one target";
    EXPECT_EQ(shown[7]["request_in"], "7");
    EXPECT_EQ(shown[8].markNames(), "answered_again");
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(shown[i].markNames(), "") << i;
}

TEST(DissectorPairing, AFloodOfAnswersIsNotListedWithoutEnd) {
    Capture capture;
    capture.add(hostAt(), everybody(), write(FIND_REQ{}));
    for (std::uint16_t i = 0; i < 1100; ++i) {
        IPAddress from = targetAt();
        from.setWord(7, i);
        capture.add(from, hostAt(), write(FIND_ANS{}));
    }
    const auto lines =
        dissectedLines(capture, "-T fields -e velmora.request_in -e velmora.response_in");
    EXPECT_EQ(std::count(lines[0].begin(), lines[0].end(), ','), 999);
    EXPECT_EQ(lines[1100], "1\t");
}

TEST(DissectorPairing, OfAQuestionToOneAndAQuestionToAllTheLaterOneIsAnswered) {
    Capture capture;
    capture.add(hostAt(), targetAt(), write(FIND_REQ{}));
    capture.add(hostAt(), everybody(), write(FIND_REQ{}));
    capture.add(targetAt(), hostAt(), write(FIND_ANS{}));
    EXPECT_EQ(dissect(capture)[2]["request_in"], "2");
}

TEST(DissectorPairing, HostsAndTargetsAreKeptApart) {
    Capture capture;
    capture.add(hostAt(41000), targetAt(), write(SINK_REQ{1}));
    capture.add(hostAt(41001), targetAt(), write(SINK_REQ{2}));
    capture.add(hostAt(41000), otherTargetAt(), write(SINK_REQ{3}));
    capture.add(otherTargetAt(), hostAt(41000), write(SINK_ANS{true, 3, 5, 1, ""}));
    capture.add(targetAt(), hostAt(41001), write(SINK_ANS{true, 2, 5, 1, ""}));
    capture.add(targetAt(), hostAt(41000), write(SINK_ANS{true, 1, 5, 1, ""}));
    const auto shown = dissect(capture);
    EXPECT_EQ(shown[3]["request_in"], "3");
    EXPECT_EQ(shown[4]["request_in"], "2");
    EXPECT_EQ(shown[5]["request_in"], "1");
    EXPECT_EQ(shown[4]["sink.no"], "2");
}

// Wireshark may show names in place of addresses, and two addresses may have one name.
TEST(DissectorPairing, NamesOfAddressesChangeNothing) {
    Capture capture;
    capture.add(hostAt(), targetAt(), write(LATENCY_REQ{1}));
    capture.add(hostAt(), otherTargetAt(), write(LATENCY_REQ{2}));
    capture.add(targetAt(), hostAt(), write(LATENCY_ANS{}));
    capture.add(otherTargetAt(), hostAt(), write(LATENCY_ANS{}));
    const std::string options = "-T fields -e ipv6.src_host -e velmora.request_in";
    const auto lines = dissectedLines(capture, options, "fe80::22 box\nfe80::33 box\n");
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[2], "box\t1");
    EXPECT_EQ(lines[3], "box\t2");
}

TEST(DissectorPairing, MarksRefusalsEchoesAndWrongNumbers) {
    Talk talk;
    talk.ask(HELLO_REQ{});
    talk.say(talk.target, talk.host, refused(write(HELLO_ANS{})));  // frame 2
    talk.ask(CONFIG_REQ{});
    talk.answer(CONFIG_REQ{});  // frame 4: the request itself
    talk.ask(VALUE_REQ{7});
    talk.answer(VALUE_ANS{true, 8});  // frame 6
    talk.ask(TRANSFER_REQ{3});
    talk.answer(TRANSFER_ANS{true, 2, 1023, 7, 15});  // frame 8
    talk.ask(TRANSFEREND_REQ{3, 0x1234, 65535});
    talk.answer(TRANSFEREND_ANS{true, 3, 0x1235, 65535});  // frame 10
    talk.ask(ITEM_REQ{4});
    talk.answer(ITEM_ANS{true, 5, 1, 0, 9, "x"});  // frame 12
    talk.ask(ITEM_REQ{0});
    talk.answer(ITEM_ANS{true, 5, 0, 0, 0, ""});  // frame 14: the count
    talk.ask(SINK_REQ{1});
    talk.answer(SINK_ANS{true, 1, 5, 1, ""});
    talk.answer(SINK_ANS{true, 1, 5, 1, ""});  // frame 17
    talk.answer(INFOB_ANS{});                  // frame 18: nobody asked
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[1].markNames(), "refused");
    EXPECT_EQ(shown[3].markNames(), "echo");
    EXPECT_TRUE(shown[2].isMarked("no_answer"));
    EXPECT_EQ(shown[5].markNames(), "wrong_echo");
    EXPECT_EQ(shown[7].markNames(), "wrong_echo");
    EXPECT_EQ(shown[9].markNames(), "wrong_echo");
    EXPECT_EQ(shown[11].markNames(), "wrong_echo");
    EXPECT_EQ(shown[13].markNames(), "");
    EXPECT_EQ(shown[15].markNames(), "");
    EXPECT_EQ(shown[16].markNames(), "answered_again");
    EXPECT_EQ(shown[17].markNames(), "unasked");
}

// Without their request three answers are read by how they look, and that is said.
TEST(DissectorPairing, SaysWhereItGuesses) {
    Capture capture;
    capture.add(targetAt(), hostAt(1), write(SINK_ANS{true, 2, 0, 0, ""}));
    capture.add(targetAt(), hostAt(2), write(SINK_ANS{true, 2, 50000, 1, "Main"}));
    capture.add(targetAt(), hostAt(3), write(TRANSFER_ANS{true, 4, 65535, 0, 0}));
    capture.add(targetAt(), hostAt(4), write(TRANSFER_ANS{true, 3, 1023, 7, 15}));
    capture.add(targetAt(), hostAt(5), write(ITEM_ANS{true, 7, 0, 0, 0, ""}));
    capture.add(targetAt(), hostAt(6), write(ITEM_ANS{true, 3, 2, 0xffff, 1, "Gain"}));
    const auto shown = dissect(capture);
    for (const Shown& one : shown) EXPECT_EQ(one.markNames(), "guessed unasked");
    EXPECT_FALSE(shown[0].has("sink.no"));
    EXPECT_EQ(shown[1]["sink.no"], "2");
    EXPECT_EQ(shown[2]["transfer.channels"], "4");
    EXPECT_EQ(shown[3]["transfer.capacity"], "131072");
    EXPECT_EQ(shown[4]["item.count"], "7");
    EXPECT_EQ(shown[5]["item.lower"], "-1");
}

TEST(DissectorPairing, TheTargetsLogAnswersOnceAndTalksOn) {
    Talk talk;
    talk.ask(LOG_REQ{true});
    talk.answer(LOG_ANS{true, 0, ""});
    talk.answer(LOG_ANS{true, 2, "buffer at 20 ms"});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[1]["request_in"], "1");
    EXPECT_FALSE(shown[2].has("request_in"));
    EXPECT_EQ(shown[2]["log.text"], "buffer at 20 ms");
    EXPECT_EQ(shown[2].markNames(), "");
}

TEST(DissectorPairing, AChangeWordThatStaysIsNoSignOfLife) {
    Capture capture;
    for (const std::uint16_t w : words({5, 5, 6, 0})) {
        capture.add(targetAt(50000), everybody(NotifyPort), write(NOTIFY{w}));
        capture.add(otherTargetAt(50000), everybody(NotifyPort),
                    write(NOTIFY{static_cast<std::uint16_t>(capture.count() + 100)}));
    }
    const auto shown = dissect(capture);
    EXPECT_EQ(shown[0].markNames(), "");
    EXPECT_EQ(shown[2].markNames(), "word_repeated");
    EXPECT_EQ(shown[4].markNames(), "");
    EXPECT_EQ(shown[6].markNames(), "restarted");
    for (std::size_t i = 1; i < 8; i += 2) EXPECT_EQ(shown[i].markNames(), "");
}

// One pass, as tshark works on a live link: what came before is known, what comes later is not.
TEST(DissectorPairing, LinesOfThePacketListTellTheStory) {
    Talk talk;
    talk.ask(FIND_REQ{});
    talk.answer(FIND_ANS{true, 0x4554'4e45'5652'4f4b, "Living\nroom \x1b[31m\xc2\x9b!"});
    talk.connect();
    talk.audio(0, 0x60, 400);
    talk.feedback(0x3000);
    talk.audio(3, 0x40, 400);
    talk.answer(LOG_ANS{true, 2, std::string(59, 'x') + "\u00e9\u00e9"});
    const auto lines =
        dissectedLines(talk.capture, "-T fields -e _ws.col.Protocol -e _ws.col.Info");
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[0], "VELMORA\tFIND_REQ");
    EXPECT_EQ(lines[1], "VELMORA\tFIND_ANS KORVENTE \"Living.room .[31m.!\"");
    EXPECT_EQ(lines[2], "VELMORA\tCONNECT_REQ PCM 16, 2 channels, 48000 Hz");
    EXPECT_EQ(lines[3], "VELMORA\tCONNECT_ANS port 20002");
    EXPECT_EQ(lines[4], "VELMORA\tSTREAM_DATA 0, 400 bytes, last, asks");
    EXPECT_EQ(lines[5], "VELMORA\tINFO_ANS feedback +0.5000");
    EXPECT_EQ(lines[6], "VELMORA\tSTREAM_DATA 3, 400 bytes, last [2 missing]");
    EXPECT_EQ(lines[7], "VELMORA\tLOG_ANS \"" + std::string(59, 'x') + "...\"")
        << "cut between characters";
}

}  // namespace
}  // namespace velmora_test
