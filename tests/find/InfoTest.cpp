// The texts that a target tells of itself, and its value.
#include <functional>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

class Info : public FindTest {
protected:
    Info() {
        network.delay = 0;
        target.replies[wire::INFOA_REQ::id] = [](const wire::PacketView&) {
            return write(wire::INFOA_ANS{.text = "text A"});
        };
        target.replies[wire::INFOB_REQ::id] = [](const wire::PacketView&) {
            return write(wire::INFOB_ANS{.text = "text B"});
        };
        target.replies[wire::INFOINDEX_REQ::id] = [](const wire::PacketView& request) {
            return write(wire::INFOINDEX_ANS{.text = "text " + std::to_string(request.arg16(8))});
        };
        target.replies[wire::VALUE_REQ::id] = [](const wire::PacketView& request) {
            return write(wire::VALUE_ANS{.value = request.arg16(8)});
        };
    }
    ScriptedTarget target{network, control(1)};
};

constexpr Manner unanswered[] = {Manner::silent,        Manner::refuses,   Manner::echoes,
                                 Manner::foreignSender, Manner::otherPort, Manner::otherScope};

TEST_F(Info, IsAskedForInTheseBytes) {
    Find& find = opened();
    std::string text;
    EXPECT_TRUE(find.readInfoA(control(1), text));
    EXPECT_TRUE(find.readInfoB(control(1), text));
    EXPECT_TRUE(find.readInfoIndexed(control(1), 0x1234, text));
    EXPECT_TRUE(find.writeValue(control(1), /*on=*/true, 0xabcd));
    EXPECT_TRUE(find.writeValue(control(1), /*on=*/false, 0xabcd));
    const auto sent = sentByHost();
    ASSERT_EQ(sent.size(), 5u);
    const Bytes expected[] = {
        {0x64, 0, 0x10, 0, 32, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 34, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 44, 0, 0, 0, 0x34, 0x12, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 36, 0, 0, 0, 0xcd, 0xab, 0, 0, 0, 0, 0, 0},
        {0x64, 0, 0x10, 0, 36, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    };
    for (std::size_t i = 0; i < sent.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(sent[i].data, expected[i]);
        EXPECT_EQ(sent[i].to, control(1));
    }
}

TEST_F(Info, IsReadFromTheseBytes) {
    const auto answer = [](std::uint8_t id, char letter) {
        return Bytes{0x64, 0, 0x1e, 0, id, 0, 1, 0,   9,
                     9,    9, 9,    9, 9,  9, 9, 't', static_cast<std::uint8_t>(letter),
                     0,    0, 0,    0, 0,  0};
    };
    target.replies[32] = [&](const wire::PacketView&) { return answer(33, 'a'); };
    target.replies[34] = [&](const wire::PacketView&) { return answer(35, 'b'); };
    target.replies[44] = [&](const wire::PacketView&) { return answer(45, 'i'); };
    target.replies[36] = [&](const wire::PacketView&) {
        return Bytes{0x64, 0, 0x10, 0, 37, 0, 1, 0, 0x07, 0x01, 0, 0, 0, 0, 0, 0};
    };
    Find& find = opened();
    std::string text;
    EXPECT_TRUE(find.readInfoA(control(1), text));
    EXPECT_EQ(text, "ta");
    EXPECT_TRUE(find.readInfoB(control(1), text));
    EXPECT_EQ(text, "tb");
    EXPECT_TRUE(find.readInfoIndexed(control(1), 1, text));
    EXPECT_EQ(text, "ti");
    EXPECT_TRUE(find.writeValue(control(1), true, 0x0107));
}

TEST_F(Info, ReplacesWhatTheTextWas) {
    Find& find = opened();
    std::string text = "left over";
    EXPECT_TRUE(find.readInfoA(control(1), text));
    EXPECT_EQ(text, "text A");
    EXPECT_TRUE(find.readInfoB(control(1), text));
    EXPECT_EQ(text, "text B");
    EXPECT_TRUE(find.readInfoIndexed(control(1), 65535, text));
    EXPECT_EQ(text, "text 65535");
}

TEST_F(Info, MayBeAnEmptyText) {
    target.replies[wire::INFOA_REQ::id] = [](const wire::PacketView&) {
        return write(wire::INFOA_ANS{});
    };
    std::string text = "left over";
    EXPECT_TRUE(opened().readInfoA(control(1), text));
    EXPECT_EQ(text, "");
}

TEST_F(Info, LeavesTheTextEmptyWhereItFails) {
    using Read = std::function<bool(Find&, std::string&)>;
    const std::pair<std::uint16_t, Read> reads[] = {
        {wire::INFOA_REQ::id, [](Find& f, std::string& t) { return f.readInfoA(control(1), t); }},
        {wire::INFOB_REQ::id, [](Find& f, std::string& t) { return f.readInfoB(control(1), t); }},
        {wire::INFOINDEX_REQ::id,
         [](Find& f, std::string& t) { return f.readInfoIndexed(control(1), 1, t); }},
    };
    Find& find = opened();
    for (const auto& [id, read] : reads) {
        for (const Manner manner : unanswered) {
            SCOPED_TRACE(std::to_string(id) + " " + std::to_string(static_cast<int>(manner)));
            target.behave(manner, id);
            target.seen.clear();
            std::string text = "left over";
            EXPECT_FALSE(read(find, text));
            EXPECT_EQ(text, "");
            EXPECT_EQ(target.seen.size(), 1u) << "no retry";
        }
        target.behave(Manner::silent, id);
        std::string text;
        EXPECT_EQ(duration([&, &ask = read] { EXPECT_FALSE(ask(find, text)); }), VELMORA::ackWait);
    }
    network.waitFails = true;
    for (const auto& [id, read] : reads) {
        std::string text = "left over";
        EXPECT_FALSE(read(find, text));
        EXPECT_EQ(text, "");
    }
}

TEST_F(Info, ValueIsWrittenOnlyWhereTheSameWordComesBack) {
    struct Case {
        const char* why;
        bool on;
        std::uint16_t value, back;
        bool good;
    };
    constexpr Case cases[] = {
        {"the value", true, 7, 7, true},
        {"another", true, 7, 8, false},
        {"its low byte alone", true, 0x0107, 7, false},
        {"off is 0", false, 7, 0, true},
        {"off, and the value comes back", false, 7, 7, false},
        {"on with 0", true, 0, 0, true},
        {"the highest", true, 65535, 65535, true},
    };
    Find& find = opened();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        target.replies[wire::VALUE_REQ::id] = [&](const wire::PacketView&) {
            return write(wire::VALUE_ANS{.value = c.back});
        };
        target.seen.clear();
        EXPECT_EQ(find.writeValue(control(1), c.on, c.value), c.good);
        ASSERT_EQ(target.seen.size(), 1u);
        EXPECT_EQ(target.seen[0].arg[0], c.on ? c.value : 0);
    }
}

TEST_F(Info, ValueIsNotWrittenWhereTheTargetDoesNotAccept) {
    Find& find = opened();
    for (const Manner manner : unanswered) {
        SCOPED_TRACE(static_cast<int>(manner));
        target.behave(manner, wire::VALUE_REQ::id);
        EXPECT_FALSE(find.writeValue(control(1), true, 7));
        EXPECT_FALSE(find.writeValue(control(1), false, 7));
    }
    network.waitFails = true;
    EXPECT_FALSE(find.writeValue(control(1), true, 7));
}

}  // namespace
}  // namespace velmora_test
