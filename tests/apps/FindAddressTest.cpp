// Addresses as they are typed and shown, and how one becomes the target that is meant.
#include "apps/velmora-find/Address.h"
#include "tests/apps/FindWorld.h"

namespace velmora_test {
namespace {

using velmora_find::addressText;
using velmora_find::Links;
using velmora_find::readAddress;
using velmora_find::shownAddress;

struct Typed {
    const char* text;
    const char* address;  // null: no address
    const char* interface;
    int port;
};
constexpr Typed typed[] = {
    {"fe80::1", "fe80::1", "", 19642},
    {"fe80::1%eth0", "fe80::1", "eth0", 19642},
    {"fe80::1%3", "fe80::1", "3", 19642},
    {"fe80::1%Local Area Connection 2", "fe80::1", "Local Area Connection 2", 19642},
    {"fe80::1,19700", "fe80::1", "", 19700},
    {"fe80::1%eth0,19700", "fe80::1", "eth0", 19700},
    {"fe80::1%a,b", "fe80::1", "a,b", 19642},
    {"fe80::1%a,b,19700", "fe80::1", "a,b", 19700},
    {"[fe80::1]", "fe80::1", "", 19642},
    {"[fe80::1%eth0]:19700", "fe80::1", "eth0", 19700},
    {"2001:db8:0:1::5", "2001:db8:0:1::5", "", 19642},
    {"::1", "::1", "", 19642},
    {"FE80::ABCD", "fe80::abcd", "", 19642},
    {"", nullptr, "", 0},
    {"DAC", nullptr, "", 0},
    {"19642", nullptr, "", 0},
    {"fe80::1%", nullptr, "", 0},
    {"fe80::1,0", nullptr, "", 0},
    {"fe80::1,65536", nullptr, "", 0},
    {"[fe80::1]:", nullptr, "", 0},
    {"[fe80::1]:x", nullptr, "", 0},
    {"[fe80::1]19700", nullptr, "", 0},
    {"[fe80::1", nullptr, "", 0},
    {"fe80::1::2", nullptr, "", 0},
    {"fe80::12345", nullptr, "", 0},
    {"192.168.0.1", nullptr, "", 0},
};

TEST(FindAddress, IsReadInEveryFormThatIsShown) {
    for (const Typed& t : typed) {
        SCOPED_TRACE(t.text);
        const auto read = readAddress(t.text);
        ASSERT_EQ(read.has_value(), t.address != nullptr);
        if (!read) continue;
        EXPECT_EQ(addressText(read->address), t.address);
        EXPECT_EQ(read->interface.value_or(""), t.interface);
        EXPECT_EQ(read->address.portNumber(), t.port);
        EXPECT_EQ(read->address.scope, 0u);
    }
}

struct Shown {
    std::array<std::uint16_t, 8> groups;
    const char* text;
};
constexpr Shown shown[] = {
    {{0, 0, 0, 0, 0, 0, 0, 0}, "::"},
    {{0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
    {{1, 0, 0, 0, 0, 0, 0, 0}, "1::"},
    {{0xfe80, 0, 0, 0, 1, 2, 3, 4}, "fe80::1:2:3:4"},
    {{0x2001, 0, 1, 2, 3, 4, 5, 6}, "2001:0:1:2:3:4:5:6"},
    {{1, 0, 0, 2, 0, 0, 0, 3}, "1:0:0:2::3"},
    {{1, 0, 0, 2, 3, 0, 0, 4}, "1::2:3:0:0:4"},
    {{1, 2, 3, 4, 5, 6, 7, 8}, "1:2:3:4:5:6:7:8"},
    {{1, 2, 3, 4, 5, 6, 0, 0}, "1:2:3:4:5:6::"},
    {{0, 0, 3, 4, 5, 6, 7, 8}, "::3:4:5:6:7:8"},
};

TEST(FindAddress, IsShownSoThatItCanBeTyped) {
    for (const Shown& s : shown) {
        SCOPED_TRACE(s.text);
        const IPAddress address = IPAddress::of(s.groups, 19642);
        EXPECT_EQ(addressText(address), s.text);
        const auto read = readAddress(s.text);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->address, address);
    }
}

TEST(FindAddress, BearsItsInterfaceByNameOrByNumber) {
    const Links links(
        {{onLink(1, 0, 3), {"eth0", ""}}, {onLink(1, 0, 4), {"Local Area Connection", ""}}});
    EXPECT_EQ(shownAddress(onLink(2), links), "fe80::2%eth0");
    EXPECT_EQ(shownAddress(onLink(2, 19700), links), "[fe80::2%eth0]:19700");
    EXPECT_EQ(shownAddress(onLink(2, 19642, 4), links), "fe80::2%4");
    EXPECT_EQ(shownAddress(onLink(2, 19642, 9), links), "fe80::2%9");
    EXPECT_EQ(shownAddress(onLink(2, 19642, 0), links), "fe80::2");
}

TEST(FindLinks, FindAnInterfaceByNameBeforeNumber) {
    const Links links({{onLink(1, 0, 3), {"4", ""}}, {onLink(1, 0, 4), {"eth1", ""}}});
    EXPECT_EQ(links.numberOf("4"), 3u);
    EXPECT_EQ(links.numberOf("eth1"), 4u);
    EXPECT_EQ(links.numberOf("3"), 3u);
    EXPECT_EQ(links.numberOf("eth2"), std::nullopt);
    EXPECT_EQ(links.numberOf("+3"), std::nullopt);
}

using FindTarget = FindWorld;

TEST_F(FindTarget, IsReachedInEveryForm) {
    for (const char* text : {"fe80::2%eth0", "fe80::2%3", "fe80::2", "[fe80::2%eth0]:19642",
                             "fe80::2,19642", "DAC", "DAC(Main)"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(run({"info", text}), velmora_find::exitDone) << talk.str();
        EXPECT_THAT(out.str(), HasSubstr("fe80::2%eth0"));
    }
}

TEST_F(FindTarget, IsAskedOnEachInterfaceInTurn) {
    network.interfaces[onLink(9, 0, 5)] = {"eth1", ""};
    ScriptedTarget far(network, onLink(4, 19642, 5));
    far.name = "far";
    EXPECT_EQ(run({"info", "fe80::4"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), HasSubstr("fe80::4%eth1"));
    EXPECT_EQ(run({"info", "fe80::4%eth0"}), velmora_find::exitNobody);
    EXPECT_THAT(talk.str(), HasSubstr("Nobody answers at fe80::4%eth0"));
}

TEST_F(FindTarget, ThatMissesAQuestionIsAskedAgain) {
    int lost = 0;
    network.fate = [&](const Datagram& datagram) -> Fate {
        if (datagram.toPeer && ++lost <= 2) return {};
        return {{50, std::nullopt}};
    };
    EXPECT_EQ(run({"info", "fe80::2%eth0"}), velmora_find::exitDone);
}

TEST_F(FindTarget, OfAnAmbiguousNameIsTold) {
    ScriptedTarget twin(network, onLink(4, 19700));
    twin.alsoAt(onLink(4));
    twin.name = "DAC";
    twin.sinks = {{19650, 1, ""}};
    EXPECT_EQ(run({"info", "DAC"}), velmora_find::exitUsage);
    EXPECT_THAT(talk.str(), HasSubstr("fe80::2%eth0, fe80::4%eth0"));
    EXPECT_EQ(run({"info", "DAC(Main)"}), velmora_find::exitDone);
}

TEST_F(FindTarget, IsKnownByItsNameAsItIsShown) {
    target.name = "bad\x1bname";
    EXPECT_EQ(run({"info", "bad\\x1bname"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), Not(HasSubstr("\x1b")));
}

struct Miss {
    const char* address;
    int code;
    const char* words;
};
TEST_F(FindTarget, ThatIsNotThereIsToldWithItsReason) {
    const Miss misses[] = {
        {"fe80::7", velmora_find::exitNobody, "Nobody answers at fe80::7"},
        {"Nobody", velmora_find::exitNobody, "No target named \"Nobody\" answers"},
        {"fe80::2%eth7", velmora_find::exitNetwork, "There is no interface \"eth7\""},
        {"2001:db8::1", velmora_find::exitNobody, "Nobody answers at 2001:db8::1"},
    };
    for (const Miss& miss : misses) {
        SCOPED_TRACE(miss.address);
        EXPECT_EQ(run({"info", miss.address}), miss.code);
        EXPECT_THAT(talk.str(), HasSubstr(miss.words));
        EXPECT_THAT(out.str(), IsEmpty());
    }
    target.behave(Manner::refuses, wire::FIND_REQ::id);
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitTarget);
    network.sendError = 10065;
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitNetwork);
    network.interfaces.clear();
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitNetwork);
    network.interfacesFail = true;
    EXPECT_EQ(run({"info", "fe80::2"}), velmora_find::exitNetwork);
}

}  // namespace
}  // namespace velmora_test
