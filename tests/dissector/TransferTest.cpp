// Transfers: the CRC over what a capture holds, bursts and their acknowledgements.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "tests/dissector/Talk.h"
#include "wire/Crc16.h"

namespace velmora_test {
namespace {

using namespace VELMORA::wire;

// A transfer of `data` to channel 2 (3 on the wire), in packets of 8 bytes and blocks of 4.
struct Sending : Talk {
    static constexpr std::uint16_t channel = 3, packetBytes = 8, blockPackets = 4;
    Bytes data;

    explicit Sending(std::size_t bytes) : data(bytes) {
        std::iota(data.begin(), data.end(), std::uint8_t{1});
    }
    void open() {
        ask(TRANSFER_REQ{0});
        answer(TRANSFER_ANS{true, 4, 65535, 0, 0});
        ask(TRANSFER_REQ{channel});
        answer(TRANSFER_ANS{true, channel, packetBytes - 1, blockPackets - 1, 65535});
    }
    std::size_t packets() const { return (data.size() + packetBytes - 1) / packetBytes; }
    Bytes packet(std::size_t place, bool last) const {
        const std::size_t from = place * packetBytes,
                          to = std::min(data.size(), from + packetBytes);
        return write(TRANSFER_DATA{static_cast<std::uint16_t>(channel | (last ? 0x8000 : 0)),
                                   static_cast<std::uint16_t>(place),
                                   static_cast<std::uint16_t>(place % blockPackets),
                                   static_cast<std::uint16_t>(place / blockPackets)},
                     ConstBytes(data).subspan(from, to - from));
    }
    void send(std::size_t place, bool last = false) { say(host, target, packet(place, last)); }
    void acknowledge(std::size_t place) {
        answer(TRANSFER_ACK{true, channel, static_cast<std::uint16_t>(place)});
    }
    void close(std::uint16_t crc) {
        ask(TRANSFEREND_REQ{channel, crc, 65535});
        answer(TRANSFEREND_ANS{true, channel, crc, 65535});
    }
    // What was found out about the CRC: "good", "wrong", "-" where it was not checked.
    std::string verdict() const {
        const auto shown = dissect();
        const Shown& end = shown[shown.size() - 2];
        EXPECT_EQ(end["id"], "30");
        EXPECT_EQ(end.isMarked("crc_unchecked"), !end.has("transfer.crc_good"));
        EXPECT_EQ(end.isMarked("crc_wrong"), end["transfer.crc_good"] == "0");
        if (!end.has("transfer.crc_good")) return "-";
        char computed[8];
        std::snprintf(computed, sizeof computed, "0x%04x", unsigned{crc16(data)});
        EXPECT_EQ(end["transfer.crc_computed"], computed);
        return end["transfer.crc_good"] == "1" ? "good" : "wrong";
    }
};

TEST(DissectorTransfer, TheCrcOfAWholeTransferIsChecked) {
    for (const std::size_t bytes : {0u, 1u, 8u, 9u, 32u, 75u}) {
        SCOPED_TRACE(bytes);
        Sending good(bytes);
        good.open();
        for (std::size_t i = 0; i < good.packets(); ++i) good.send(i, i + 1 == good.packets());
        good.close(crc16(good.data));
        EXPECT_EQ(good.verdict(), "good");
    }
    Sending wrong(75);
    wrong.open();
    for (std::size_t i = 0; i < wrong.packets(); ++i) wrong.send(i);
    wrong.close(static_cast<std::uint16_t>(crc16(wrong.data) ^ 1));
    EXPECT_EQ(wrong.verdict(), "wrong");
}

TEST(DissectorTransfer, TheCrcTakesPacketsInTheirOrderAndTheFirstOfEach) {
    Sending sending(75);
    sending.open();
    for (const std::size_t place : {0u, 3u, 2u, 2u, 1u, 9u, 5u, 4u, 0u, 8u, 6u, 7u}) {
        sending.send(place);
    }
    // The short last one again: its tail is lost, and it is 8 bytes longer than it says.
    Bytes again = sending.packet(9, true);
    std::fill(again.begin() + 16, again.end(), std::uint8_t{0});
    again.resize(again.size() + 8);
    sending.say(sending.host, sending.target, again);
    sending.close(crc16(sending.data));
    EXPECT_EQ(sending.verdict(), "good");
}

TEST(DissectorTransfer, WhatTheCaptureDoesNotHoldIsNotChecked) {
    for (const std::size_t lost : {0u, 4u, 9u}) {
        SCOPED_TRACE(lost);
        Sending sending(75);
        sending.open();
        for (std::size_t i = 0; i < sending.packets(); ++i) {
            if (i != lost) sending.send(i);
        }
        sending.close(crc16(sending.data));
        // That the last one is missing nobody can see: the CRC is that of another buffer.
        if (lost == 9) {
            sending.data.resize(72);
            EXPECT_EQ(sending.verdict(), "wrong");
        } else {
            EXPECT_EQ(sending.verdict(), "-");
        }
    }
    Sending unopened(16);
    unopened.send(0), unopened.send(1, true);
    unopened.close(crc16(unopened.data));
    EXPECT_EQ(unopened.verdict(), "-");

    Sending cut(16);
    cut.open();
    cut.send(0);
    cut.capture.keepOnly(20);
    cut.send(1, true);
    cut.capture.keepOnly(SIZE_MAX);
    cut.close(crc16(cut.data));
    EXPECT_EQ(cut.verdict(), "-");
}

TEST(DissectorTransfer, CanDoWithoutTheCrc) {
    Sending sending(8);
    sending.open();
    sending.send(0, true);
    sending.close(crc16(sending.data));
    const auto shown = dissect(sending.capture, "-o velmora.crc:FALSE");
    EXPECT_TRUE(shown[5].isMarked("crc_unchecked"));
}

TEST(DissectorTransfer, ASecondTransferToTheSameChannelBeginsAnew) {
    Sending sending(24);
    for (int i = 0; i < 2; ++i) {
        sending.open();
        for (std::size_t place = 0; place < 3; ++place) sending.send(place, place == 2);
        sending.acknowledge(2);
        sending.close(crc16(sending.data));
    }
    EXPECT_EQ(sending.verdict(), "good");
    for (const Shown& one : sending.dissect()) EXPECT_EQ(one.markNames(), "") << one["id"];
}

TEST(DissectorTransfer, BurstsThatDidNotArriveWholeAreMarked) {
    Sending sending(80);
    sending.open();  // frames 1 to 4
    for (std::size_t place = 0; place < 4; ++place) sending.send(place, place == 3);
    sending.acknowledge(1);  // frame 9
    sending.send(1), sending.send(2), sending.send(3, true);
    sending.acknowledge(3);  // frame 13
    sending.send(4), sending.send(6, true);
    sending.acknowledge(7);  // frame 16: one more counts as well
    const auto shown = sending.dissect();
    EXPECT_EQ(shown[8]["transfer.burst_arrived"], "0");
    EXPECT_EQ(shown[8].markNames(), "burst_incomplete");
    EXPECT_EQ(shown[8]["request_in"], "8");
    EXPECT_EQ(shown[9]["transfer.again"], "1");
    EXPECT_EQ(shown[9]["transfer.first_in"], "6");
    EXPECT_EQ(shown[9].markNames(), "again");
    EXPECT_EQ(shown[12]["transfer.burst_arrived"], "1");
    EXPECT_EQ(shown[12]["request_in"], "12");
    EXPECT_EQ(shown[13].markNames(), "");
    EXPECT_EQ(shown[14]["transfer.gap"], "1");
    EXPECT_EQ(shown[14]["transfer.gap_from"], "5");
    EXPECT_EQ(shown[14].markNames(), "gap");
    EXPECT_EQ(shown[15]["transfer.burst_arrived"], "1");
}

TEST(DissectorTransfer, AnEndThatIsNotCompleteIsMarkedAndAQuestionForTheStatusIsNot) {
    Talk talk;
    talk.ask(TRANSFEREND_REQ{3, 0, 0});
    talk.answer(TRANSFEREND_ANS{true, 3, 0, 12});
    talk.ask(TRANSFER_REQ{3});
    talk.answer(TRANSFER_ANS{true, 3, 7, 3, 1});
    talk.ask(TRANSFEREND_REQ{3, 0, 65535});
    talk.answer(TRANSFEREND_ANS{true, 3, 0, 0});
    const auto shown = talk.dissect();
    EXPECT_EQ(shown[0].markNames(), "");
    EXPECT_EQ(shown[1].markNames(), "");
    EXPECT_EQ(shown[4]["transfer.crc_good"], "1") << "nothing at all has the checksum 0";
    EXPECT_EQ(shown[5].markNames(), "status_incomplete");
}

TEST(DissectorTransfer, AnAcknowledgementForAnotherChannelIsMarked) {
    Sending sending(16);
    sending.open();
    sending.send(0), sending.send(1, true);
    sending.answer(TRANSFER_ACK{true, Sending::channel + 1, 1});
    EXPECT_EQ(sending.dissect()[6].markNames(), "wrong_echo");
}

TEST(DissectorTransfer, RoomIsCountedBeyond32Bits) {
    Talk talk;
    talk.ask(TRANSFER_REQ{1});
    talk.answer(TRANSFER_ANS{true, 1, 65535, 65535, 65535});
    EXPECT_EQ(talk.dissect()[1]["transfer.capacity"], "281474976710656");
}

}  // namespace
}  // namespace velmora_test
