#include "base/IPAddress.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <map>
#include <random>

using ZENNO::IPAddress;

namespace {

using Groups = std::array<std::uint16_t, 8>;

// Port and scope that no text may touch.
IPAddress marked() {
    IPAddress address = IPAddress::of({9, 9, 9, 9, 9, 9, 9, 9}, 0x1234, 77);
    return address;
}

Groups groupsOf(const IPAddress& address) {
    Groups groups{};
    for (int i = 0; i < 8; ++i) groups[static_cast<std::size_t>(i)] = address.word(i);
    return groups;
}

template <class Write>
std::string textBy(Write write) {
    std::string out = "what stood there before";
    write(out);
    return out;
}

}  // namespace

TEST(IPAddress, IsAllZeroAtFirst) {
    const IPAddress none;
    EXPECT_EQ(none.address, (std::array<std::uint8_t, 16>{}));
    EXPECT_EQ(none.portRaw(), 0);
    EXPECT_EQ(none.scope, 0u);
    EXPECT_TRUE(none.isNone());
    EXPECT_TRUE(none.isZeroAddress());
}

TEST(IPAddress, IsNoneWithoutAddressAndPortWhateverItsScope) {
    IPAddress address;
    address.scope = 5;
    EXPECT_TRUE(address.isNone());
    address.setPortNumber(1);
    EXPECT_FALSE(address.isNone());
    EXPECT_TRUE(address.isZeroAddress());
    EXPECT_FALSE(IPAddress::of({0, 0, 0, 0, 0, 0, 0, 2}).isNone());
}

TEST(IPAddress, HoldsItsGroupsInNetworkOrder) {
    IPAddress address;
    for (int i = 0; i < 8; ++i) address.setWord(i, static_cast<std::uint16_t>(0x0102 + i * 0x0202));
    for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(address.address[i], i + 1);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(address.word(i), 0x0102 + i * 0x0202);
}

TEST(IPAddress, HoldsItsPortHighByteFirst) {
    IPAddress address;
    address.setPortNumber(19640);
    EXPECT_EQ(address.port, (std::array<std::uint8_t, 2>{0x4c, 0xb8}));
    EXPECT_EQ(address.portNumber(), 19640);

    IPAddress raw;
    raw.setPortRaw(std::endian::native == std::endian::little ? 0xb84c : 0x4cb8);
    EXPECT_EQ(raw.portNumber(), 0x4cb8);
    EXPECT_EQ(raw.portRaw(), address.portRaw());
}

TEST(IPAddress, HoldsIPv4InMappedForm) {
    IPAddress address = marked();
    IPAddress other;
    ASSERT_TRUE(other.parseV4WithPort("1.2.3.4"));
    address.setV4Raw(other.v4Raw());
    EXPECT_EQ(address.address,
              (std::array<std::uint8_t, 16>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4}));
    EXPECT_EQ(address.v4Number(), 0x01020304u);
    EXPECT_EQ(address.v4Raw(), other.v4Raw());
    EXPECT_EQ(address.portNumber(), 0x1234);
    EXPECT_EQ(address.scope, 77u);
}

TEST(IPAddress, V4NumberHasByte12Highest) {
    IPAddress address;
    address.address[12] = 0xff;
    EXPECT_EQ(address.v4Number(), 0xff000000u);
}

TEST(IPAddress, CopiesItsBytesRaw) {
    const IPAddress address = IPAddress::of({0x0102, 2, 3, 4, 5, 6, 7, 0xfffe}, 7, 8);
    std::uint16_t raw[8];
    address.copyTo(raw);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(raw);
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[1], 2);
    IPAddress copy = marked();
    copy.copyFrom(raw);
    EXPECT_EQ(copy.address, address.address);
    EXPECT_EQ(copy.portNumber(), 0x1234);
    EXPECT_EQ(copy.scope, 77u);
}

TEST(IPAddress, KnowsLoopbackAndLinkLocalExactly) {
    struct Case {
        const char* why;
        Groups groups;
        bool loopback, linkLocal;
    };
    const Case cases[] = {
        {"::1", {0, 0, 0, 0, 0, 0, 0, 1}, true, false},
        {"::2", {0, 0, 0, 0, 0, 0, 0, 2}, false, false},
        {"all zero", {}, false, false},
        {"1::1", {1, 0, 0, 0, 0, 0, 0, 1}, false, false},
        {"fe80", {0xfe80, 0, 0, 0, 0, 0, 0, 1}, false, true},
        {"fe80 with more behind it", {0xfe80, 1, 2, 3, 4, 5, 6, 7}, false, true},
        {"fe81 shares ten bits and is none", {0xfe81, 0, 0, 0, 0, 0, 0, 1}, false, false},
        {"febf shares ten bits and is none", {0xfebf, 0, 0, 0, 0, 0, 0, 1}, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const IPAddress address = IPAddress::of(c.groups);
        EXPECT_EQ(address.isLoopback(), c.loopback);
        EXPECT_EQ(address.isLinkLocal(), c.linkLocal);
        EXPECT_EQ(address.linkCode(), c.linkLocal ? 0xfe01 : 0xfe00);
    }
    EXPECT_TRUE(IPAddress::loopbackV6(9).isLoopback());
    EXPECT_EQ(IPAddress::allNodes(19642, 3).text(), "ff02::1");
    EXPECT_EQ(IPAddress::allNodes(19642, 3).scope, 3u);
    EXPECT_EQ(IPAddress::allNodes(19642, 3).portNumber(), 19642);
}

TEST(IPAddress, PrintsItsText) {
    struct Case {
        const char* why;
        Groups groups;
        const char* text;
    };
    const Case cases[] = {
        {"link-local",
         {0xfe80, 0, 0, 0, 0x1234, 0x5678, 0x9abc, 0xdef0},
         "fe80::1234:5678:9abc:def0"},
        {"loopback", {0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
        {"all zero", {}, "::"},
        {"global", {0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, "2001:db8::1"},
        {"a zero as last but one", {1, 2, 3, 4, 5, 6, 0, 8}, "1:2:3:4:5:6:0:8"},
        {"a zero as last", {1, 2, 3, 4, 5, 6, 7, 0}, "1:2:3:4:5:6:7:0"},
        {"two zeros as last", {1, 2, 3, 4, 5, 6, 0, 0}, "1:2:3:4:5:6::"},
        {"the first gap alone", {1, 0, 2, 0, 3, 4, 5, 6}, "1::3:4:5:6"},
        {"a gap at the start", {0, 1, 2, 3, 4, 5, 6, 7}, "::2:3:4:5:6:7"},
        {"a gap swallows its neighbour", {0x2001, 0, 1, 2, 3, 4, 5, 6}, "2001::2:3:4:5:6"},
        {"a gap up to the end", {1, 0, 0, 0, 0, 0, 0, 0}, "1::"},
        {"a neighbour goes with the end", {1, 2, 3, 4, 5, 0, 6, 0}, "1:2:3:4:5::"},
        {"a gap up to the last group", {1, 2, 3, 4, 5, 0, 0, 8}, "1:2:3:4:5::8"},
        {"no second gap", {1, 0, 0, 4, 0, 0, 0, 8}, "1::4:0:0:0:8"},
        {"no second gap at the end", {1, 0, 0, 4, 5, 6, 0, 0}, "1::4:5:6:0:0"},
        {"no zero", {1, 2, 3, 4, 5, 6, 7, 8}, "1:2:3:4:5:6:7:8"},
        {"lower case, no leading zeros", {0xABCD, 0xEF, 1, 1, 1, 1, 1, 0xF}, "abcd:ef:1:1:1:1:1:f"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const IPAddress address = IPAddress::of(c.groups);
        EXPECT_EQ(textBy([&](std::string& out) { address.toText(out); }), c.text);
        EXPECT_EQ(address.text(), c.text);
    }
}

TEST(IPAddress, TextNeverHasPortOrScope) {
    EXPECT_EQ(IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 19642, 5).text(), "fe80::1");
}

TEST(IPAddress, PrintsItsOtherTexts) {
    const IPAddress address = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0x0102, 0xff00}, 19640, 5);
    EXPECT_EQ(textBy([&](std::string& out) { address.toTextWithPort(out); }),
              "fe80::102:ff00,19640");
    EXPECT_EQ(textBy([&](std::string& out) { address.toTextV4(out); }), "1.2.255.0");
    EXPECT_EQ(textBy([&](std::string& out) { address.portText(out); }), "19640");

    const IPAddress none;
    EXPECT_EQ(textBy([&](std::string& out) { none.toTextWithPort(out); }), "::,0");
    EXPECT_EQ(textBy([&](std::string& out) { none.toTextV4(out); }), "0.0.0.0");
    EXPECT_EQ(textBy([&](std::string& out) { none.portText(out); }), "0");
}

TEST(IPAddress, ParsesV6) {
    struct Case {
        const char* text;
        Groups groups;
    };
    const Case cases[] = {
        {"::", {}},
        {"1::", {1}},
        {"::1", {0, 0, 0, 0, 0, 0, 0, 1}},
        {"::1:", {0, 0, 0, 0, 0, 0, 1, 0}},
        {"fe80::1234:5678:9abc:def0", {0xfe80, 0, 0, 0, 0x1234, 0x5678, 0x9abc, 0xdef0}},
        {"FE80::aBcD", {0xfe80, 0, 0, 0, 0, 0, 0, 0xabcd}},
        {"2001:db8::1", {0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}},
        {"1:2:3:4:5:6:7:8", {1, 2, 3, 4, 5, 6, 7, 8}},
        {"1:2:3:4:5:6::8", {1, 2, 3, 4, 5, 6, 0, 8}},
        {"1::3:4:5:6:7:8", {1, 0, 3, 4, 5, 6, 7, 8}},
        {"::2:3:4:5:6:7", {0, 0, 2, 3, 4, 5, 6, 7}},
        {"1:2:3:4:5::7", {1, 2, 3, 4, 5, 0, 0, 7}},
        {"1:2:3::", {1, 2, 3}},
        {"0001:0002:3:4:5:6:7:ffff", {1, 2, 3, 4, 5, 6, 7, 0xffff}},
        // A single colon at an end is an empty group.
        {":1:2:3:4:5:6:7", {0, 1, 2, 3, 4, 5, 6, 7}},
        {"1:2:3:4:5:6:7:", {1, 2, 3, 4, 5, 6, 7, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        IPAddress address = marked();
        ASSERT_TRUE(address.parseV6(c.text));
        EXPECT_EQ(groupsOf(address), c.groups);
        EXPECT_EQ(address.portNumber(), 0x1234);
        EXPECT_EQ(address.scope, 77u);
    }
}

TEST(IPAddress, RefusesWhatIsNoV6) {
    struct Case {
        const char* why;
        const char* text;
    };
    const Case cases[] = {
        {"nothing", ""},
        {"a gap of no groups", "1:2:3:4:5:6:7::"},
        {"two gaps", "1::2::3"},
        {"three colons", ":::"},
        {"a fifth digit", "12345::"},
        {"a fifth digit that is a zero", "00001::"},
        {"no hexadecimal digit", "g::"},
        {"too few groups", "1:2:3:4:5:6:7"},
        {"too many groups", "1:2:3:4:5:6:7:8:9"},
        {"eight groups and a gap", "1:2:3:4::5:6:7:8"},
        {"one group", "1"},
        {"one colon", ":"},
        {"a dotted end", "::1.2.3.4"},
        {"a zone", "fe80::1%5"},
        {"a port", "fe80::1,5"},
        {"brackets", "[::1]"},
        {"a blank", " ::1"},
        {"a sign", "-1::"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        IPAddress address = marked();
        EXPECT_FALSE(address.parseV6(c.text));
        EXPECT_EQ(address, marked());
    }
}

TEST(IPAddress, ReadsBackEveryTextWithoutAGap) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int n = 0; n < 1000; ++n) {
        Groups groups{};
        for (auto& group : groups) group = static_cast<std::uint16_t>(random() % 0xffff + 1);
        IPAddress address;
        ASSERT_TRUE(address.parseV6(IPAddress::of(groups).text()));
        ASSERT_EQ(groupsOf(address), groups);
    }
}

TEST(IPAddress, TakesAGapAtEveryPlaceAndOfEveryLength) {
    for (std::size_t before = 0; before <= 7; ++before) {
        for (std::size_t behind = 0; before + behind <= 7; ++behind) {
            Groups groups{};
            std::string text;
            for (std::size_t i = 0; i < before; ++i) {
                groups[i] = static_cast<std::uint16_t>(i + 1);
                text += (i == 0 ? "" : ":") + std::to_string(i + 1);
            }
            text += "::";
            for (std::size_t i = 8 - behind; i < 8; ++i) {
                groups[i] = static_cast<std::uint16_t>(i + 1);
                text += (i == 8 - behind ? "" : ":") + std::to_string(i + 1);
            }
            SCOPED_TRACE(text);
            IPAddress address = marked();
            // An end of the text next to the gap is a group of its own, of value 0.
            const bool fits =
                std::max<std::size_t>(before, 1) + std::max<std::size_t>(behind, 1) <= 7;
            ASSERT_EQ(address.parseV6(text), fits);
            if (fits) {
                EXPECT_EQ(groupsOf(address), groups);
            }
        }
    }
}

TEST(IPAddress, ParsesPorts) {
    struct Case {
        const char* why;
        const char* text;
        int port;  // -1: refused
    };
    const Case cases[] = {
        {"a port", "19640", 19640},
        {"nothing is 0", "", 0},
        {"leading zeros", "007", 7},
        {"taken modulo 65536", "65536", 0},
        {"a long one too", "18446744073709551617", 1},
        {"a sign", "-1", -1},
        {"a blank", " 1", -1},
        {"a letter behind it", "19x", -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        IPAddress address = marked();
        EXPECT_EQ(address.parsePort(c.text), c.port >= 0);
        EXPECT_EQ(address.portNumber(), c.port >= 0 ? c.port : 0x1234);
        EXPECT_EQ(address.address, marked().address);
    }
}

TEST(IPAddress, ParsesV6WithPort) {
    IPAddress address = marked();
    ASSERT_TRUE(address.parseV6WithPort("fe80::1,19640"));
    EXPECT_EQ(address, IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 0x4cb8, 77));
    EXPECT_EQ(address.port, (std::array<std::uint8_t, 2>{0x4c, 0xb8}));

    ASSERT_TRUE(address.parseV6WithPort("fe80::2,"));
    EXPECT_EQ(address, IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 2}, 0, 77));

    for (const char* text : {"", "fe80::1", ",1", "g::,1", "fe80::1%3,1"}) {
        SCOPED_TRACE(text);
        IPAddress unchanged = marked();
        EXPECT_FALSE(unchanged.parseV6WithPort(text));
        EXPECT_EQ(unchanged, marked());
    }
}

TEST(IPAddress, KeepsTheAddressInFrontOfABadPort) {
    for (const char* text : {"fe80::1,19x", "fe80::1,1,2"}) {
        SCOPED_TRACE(text);
        IPAddress address = marked();
        EXPECT_FALSE(address.parseV6WithPort(text));
        EXPECT_EQ(address, IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 0x1234, 77));
    }
}

TEST(IPAddress, ParsesV4WithPort) {
    struct Case {
        const char* why;
        const char* text;
        std::uint32_t number;
        std::uint16_t port;
    };
    const Case cases[] = {
        {"an address", "192.168.1.20", 0xc0a80114, 0},
        {"with a port", "192.168.1.20,19640", 0xc0a80114, 19640},
        {"an empty port", "1.2.3.4,", 0x01020304, 0},
        {"empty numbers are 0", "...", 0, 0},
        {"words are 0", "a.b.c.d,e", 0, 0},
        {"blanks and signs", " 1. +2.\t3.4, 5", 0x01020304, 5},
        {"what follows a number is nothing", "1x.2 .3-.4z,5y", 0x01020304, 5},
        {"a fifth number is nothing", "1.2.3.4.5,6", 0x01020304, 6},
        {"numbers are cut to 8 bits", "256.257.511.1000", 0x0001ffe8, 0},
        {"ports are cut to 16 bits", "1.2.3.4,65537", 0x01020304, 1},
        {"numbers beyond 32 bits are the largest one", "99999999999.0.0.0,99999999999999999999",
         0xff000000, 0xffff},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        IPAddress address = marked();
        ASSERT_TRUE(address.parseV4WithPort(c.text));
        IPAddress expected;
        expected.setWord(5, 0xffff);
        expected.setWord(6, static_cast<std::uint16_t>(c.number >> 16));
        expected.setWord(7, static_cast<std::uint16_t>(c.number));
        expected.setPortNumber(c.port);
        EXPECT_EQ(address, expected);  // the scope too
    }
}

TEST(IPAddress, RefusesWhatIsNoV4) {
    for (const char* text : {"", "1.2.3", "1", "-1.2.3.4", "1.-2.3.4", "1.2.3.-4", "1.2.3.4,-5"}) {
        SCOPED_TRACE(text);
        IPAddress address = marked();
        EXPECT_FALSE(address.parseV4WithPort(text));
        EXPECT_EQ(address, marked());
    }
}

TEST(IPAddress, SortsByAddressThenPortThenScope) {
    // Each is less than the next.
    const IPAddress sorted[] = {
        {},
        IPAddress::of({0, 0, 0, 0, 0, 0, 0, 0}, 0, 0xffffffff),
        IPAddress::of({0, 0, 0, 0, 0, 0, 0, 0}, 0x00ff, 0),
        IPAddress::of({0, 0, 0, 0, 0, 0, 0, 0}, 0x0100, 0),
        IPAddress::of({0, 0, 0, 0, 0, 0, 0, 0x00ff}, 0, 0),
        IPAddress::of({0, 0, 0, 0, 0, 0, 0, 0x0100}, 0, 0),
        IPAddress::of({0x7fff, 0, 0, 0, 0, 0, 0, 0}, 0, 0),
        IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 9, 5),
        IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 9, 7),
        IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 9, 0x80000000),
    };
    for (std::size_t a = 0; a < std::size(sorted); ++a) {
        for (std::size_t b = 0; b < std::size(sorted); ++b) {
            SCOPED_TRACE(std::to_string(a) + " and " + std::to_string(b));
            EXPECT_EQ(sorted[a] < sorted[b], a < b);
            EXPECT_EQ(sorted[a] == sorted[b], a == b);
        }
    }
}

TEST(IPAddress, OneAddressOnTwoInterfacesIsTwoKeys) {
    const IPAddress on5 = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 9, 5);
    const IPAddress on7 = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 9, 7);
    const std::map<IPAddress, int> keys{{on7, 2}, {on5, 1}};
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys.begin()->first.scope, 5u);
}
