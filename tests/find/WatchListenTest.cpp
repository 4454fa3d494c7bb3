// What the watch makes of each datagram that comes to the socket of NOTIFY.
#include "tests/find/WatchScript.h"

namespace velmora_test {
namespace {

// A steady target answers the polls, so that the watch listens from firstListen on; what is sent
// comes from another one, which the polls do not see.
class WatchListen : public WatchTest {
protected:
    WatchListen() {
        leaves(control(2));
        comesAt(second / 2, control(2), sender);
        sender.behave(Manner::silent, wire::FIND_REQ::id, 1);  // to the polls
        sender.sinks = {{6000, 1, "one"}};
    }
    // Counts of what was asked of the sender, for it is asked only when its NOTIFY was taken.
    int identified() const { return sender.count(wire::HELLO_REQ::id); }
    std::vector<std::string> details() const {
        std::vector<std::string> out;
        for (const std::string& text : texts(7)) {
            if (!text.starts_with("Find Multi ") && !text.starts_with("FindMultiAck[") &&
                !text.starts_with("sendAck[")) {
                out.push_back(text);
            }
        }
        return out;
    }
    ScriptedTarget steady{network, control(1)};
    ScriptedTarget sender{network, control(2)};
};

// ---- the line in hexadecimal ----

TEST_F(WatchListen, TellsEachDatagramInHexadecimal) {
    sendAt(second, control(2),
           {0x64, 0, 0x10, 0, 0x01, 0x80, 0, 0, 0xfe, 0xca, 0, 0, 0x0a, 0, 0, 0xf0});
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 3 6400100001800000feca00000a0000f0"));
    EXPECT_THAT(texts(7), testing::Contains("fe80::2 3 6400100001800000feca00000a0000f0"));
    EXPECT_EQ(identified(), 1);
}

TEST_F(WatchListen, TellsNoDatagramOfMoreThan300Bytes) {
    Bytes largest = notifyBytes(1), larger = notifyBytes(2);
    largest.resize(300);
    larger.resize(301);
    sendAt(second, control(2), largest);
    sendAt(second + 1, control(2), larger);
    runUntil(2 * second);
    std::string expected = "fe80::2 3 64001000018000000100";
    expected.append(2 * (300 - 10), '0');
    EXPECT_THAT(details(), ElementsAre(expected));
    EXPECT_EQ(sender.count(wire::SINK_REQ::id), 4) << "but both are taken";
}

TEST_F(WatchListen, TellsDatagramsAtLevel7Alone) {
    ZENNO::logLevel = 6;
    notifyAt(second, control(2), 1);
    sendAt(second + 1, control(2), {1, 2, 3});
    runUntil(2 * second);
    EXPECT_THAT(texts(7), IsEmpty());
    EXPECT_EQ(identified(), 1);
}

TEST_F(WatchListen, TellsADatagramThatIsNotSoundAsWell) {
    sendAt(second, control(2), {0x00, 0x9f, 0xff});
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 3 009fff", "Receive Data Err:3"));
}

// ---- what is not sound ----

TEST_F(WatchListen, TellsTheSizeOfADatagramThatIsNotSound) {
    struct Case {
        const char* why;
        std::size_t size;
        std::uint8_t magic, sizeWord;
        bool sound;
    };
    constexpr Case cases[] = {
        {"a header alone", 16, 100, 0x10, true},
        {"one byte short of a header", 15, 100, 0x10, false},
        {"another magic", 16, 101, 0x10, false},
        {"longer by its own word than what came", 16, 100, 0x18, false},
        {"shorter by its own word", 32, 100, 0x10, true},
        {"one byte", 1, 100, 0, false},
    };
    Micros time = second;
    std::vector<std::string> expected;
    std::uint8_t word = 0;
    int sound = 0;
    for (const Case& c : cases) {
        Bytes data = notifyBytes(++word);  // changes each time
        data.resize(c.size);
        data[0] = c.magic;
        if (data.size() > 2) data[2] = c.sizeWord;
        sendAt(time += 1000, control(2), data);
        sound += c.sound ? 1 : 0;
        if (!c.sound) expected.push_back("Receive Data Err:" + std::to_string(c.size));
    }
    runUntil(2 * second);
    std::vector<std::string> errors;
    for (const std::string& text : details()) {
        if (text.starts_with("Receive")) errors.push_back(text);
    }
    EXPECT_EQ(errors, expected);
    EXPECT_EQ(sender.count(wire::SINK_REQ::id), 2 * sound) << "the table is brought up to date";
    EXPECT_THAT(texts(3), IsEmpty());
}

TEST_F(WatchListen, ReadsNoMoreThan1500Bytes) {
    Bytes data = notifyBytes(1);
    data.resize(1504);
    data[2] = 0xe0;
    data[3] = 0x05;  // 1504: as long as it was sent, longer than what is read
    sendAt(second, control(2), data);
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("Receive Data Err:1500"));
    EXPECT_EQ(identified(), 0);
}

TEST_F(WatchListen, SaysNothingOfAnEmptyDatagram) {
    sendAt(second, control(2), {});
    runUntil(2 * second);
    EXPECT_THAT(details(), IsEmpty());
    EXPECT_EQ(identified(), 0);
}

TEST_F(WatchListen, TakesOnlyTheIdOfNotify) {
    std::uint8_t word = 1;
    for (const std::uint16_t id :
         std::initializer_list<std::uint16_t>{0x0001, 0x8000, 0x8002, 0x0000, 0x0101, 0x80}) {
        Bytes data = notifyBytes(word++);
        data[4] = static_cast<std::uint8_t>(id);
        data[5] = static_cast<std::uint8_t>(id >> 8);
        sendAt(second + word, control(2), data);
    }
    runUntil(2 * second);
    EXPECT_EQ(details().size(), 6u) << "each is told, and none is an error";
    EXPECT_EQ(identified(), 0);
    EXPECT_THAT(sender.order(), IsEmpty());
}

TEST_F(WatchListen, ReadsNoFlagOfNotify) {
    Bytes data = notifyBytes(1);
    data[6] = 1;
    sendAt(second, control(2), data);
    runUntil(2 * second);
    EXPECT_EQ(identified(), 1);
}

// ---- the link that it came in from ----

TEST_F(WatchListen, TakesADatagramFromAnyLinkWhenNoneIsFixed) {
    ScriptedTarget elsewhere(network, control(2, 9));
    sendToHostAt(second, control(2, 9), notifyBytes(1));
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 9 64001000018000000100000000000000"));
    EXPECT_THAT(elsewhere.order(), ElementsAre("FIND_REQ", "HELLO_REQ", "SINK_REQ 0"));
}

TEST_F(WatchListen, DropsADatagramFromAnotherLinkThanTheFixedOnes) {
    addInterface(linkLocal(0x105, 0, 5), "wlan0");
    addInterface(linkLocal(0x106, 0, 6), "eth1");
    ScriptedTarget other(network, control(2, 5)), third(network, control(2, 6));
    find = &opened();
    ASSERT_TRUE(
        find->open(std::list<IPAddress>{linkLocal(0x102, 0, eth0), linkLocal(0x106, 0, 6)}));
    ASSERT_TRUE(find->openWatch());
    timed.lines.clear();
    sendToHostAt(second, control(2, 5), notifyBytes(1));
    notifyAt(second + 1, control(2), 1);
    notifyAt(second + 2, control(2, 6), 1);
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 5 64001000018000000100000000000000",
                                       "fe80::2 3 64001000018000000100000000000000",
                                       "fe80::2 6 64001000018000000100000000000000"))
        << "what is dropped is told first";
    EXPECT_THAT(other.order(), IsEmpty());
    EXPECT_EQ(third.count(wire::HELLO_REQ::id), 1 + 2) << "it answers the polls, too";
    EXPECT_EQ(identified(), 1);
}

TEST_F(WatchListen, DropsADatagramFromAnotherLinkBeforeItLooksWhetherItIsSound) {
    find = &opened();
    ASSERT_TRUE(find->open(linkLocal(0x102, 0, eth0)));
    ASSERT_TRUE(find->openWatch());
    timed.lines.clear();
    sendToHostAt(second, control(2, 5), {1, 2, 3});
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 5 010203"));
}

TEST_F(WatchListen, TakesTheLow16BitsOfTheLinksNumber) {
    sendToHostAt(second, control(2, 0x10000 + eth0), notifyBytes(1));
    runUntil(2 * second);
    EXPECT_THAT(details(), ElementsAre("fe80::2 3 64001000018000000100000000000000"));
    EXPECT_THAT(sender.order(), ElementsAre("FIND_REQ", "HELLO_REQ", "SINK_REQ 0", "SINK_REQ 1"));
    ASSERT_EQ(find->targetCount(), 1u);
    EXPECT_EQ(added().begin()->second.findAddress, control(2));
}

// ---- which datagrams keep the watch from looking at the time ----

class WatchListenTime : public WatchListen {
protected:
    static constexpr Micros begin = firstListen + second / 4;
    // A datagram each half second, so that no wait of a second ever times out, until `end`.
    void stream(const Bytes& data, Micros end, const IPAddress& from) {
        for (Micros time = begin; time <= end; time += second / 2) sendToHostAt(time, from, data);
    }
    Micros exitTime() const {
        const auto exits = times(6, "exit notify mode alldown : 0");
        EXPECT_EQ(exits.size(), 1u);
        return exits.empty() ? 0 : exits.front();
    }
    // No time-out before this, and then the first two of them.
    static constexpr Micros last = begin + 60 * second;
    static constexpr Micros delayed = last + 2 * second;
};

TEST_F(WatchListenTime, IsLookedAtWhenNothingComes) {
    runUntil(40 * second);
    EXPECT_EQ(exitTime(), firstListen + 32 * second);
}

TEST_F(WatchListenTime, IsLookedAtAfterAnySoundDatagram) {
    Bytes other = notifyBytes(1);
    other[5] = 0;  // a refused FIND_ANS
    stream(other, last, control(2));
    runUntil(firstListen + 40 * second);
    EXPECT_EQ(exitTime(), begin + 30 * second + second / 2)
        << "30.25 s: notify mode; 30.75 s: nobody is there";
}

TEST_F(WatchListenTime, IsNotLookedAtAfterADatagramThatIsNotSound) {
    stream({1, 2, 3}, last, control(2));
    runUntil(delayed + 10 * second);
    EXPECT_EQ(exitTime(), delayed);
}

TEST_F(WatchListenTime, IsNotLookedAtAfterAnEmptyDatagram) {
    stream({}, last, control(2));
    runUntil(delayed + 10 * second);
    EXPECT_EQ(exitTime(), delayed);
}

TEST_F(WatchListenTime, IsNotLookedAtAfterADatagramFromAnotherLink) {
    find = &opened();
    ASSERT_TRUE(find->open(linkLocal(0x102, 0, eth0)));
    ASSERT_TRUE(find->openWatch());
    timed.lines.clear();
    stream(notifyBytes(1), last, control(2, 5));
    runUntil(delayed + 10 * second);
    EXPECT_EQ(exitTime(), delayed);
}

TEST_F(WatchListenTime, AStopIsSeenAmongDroppedDatagrams) {
    stream({1, 2, 3}, 100 * second, control(2));
    runUntil(begin + 10 * second + 1);
    EXPECT_EQ(ended, begin + 10 * second + second / 2);
}

}  // namespace
}  // namespace velmora_test
