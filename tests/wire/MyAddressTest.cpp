#include <gtest/gtest.h>

#include "wire/DiscoveryMessage.h"

namespace {

using VELMORA::wire::replaceMyAddress;
using ZENNO::IPAddress;

TEST(MyAddress, FirstMarkerBecomesTheTargetsAddressInBrackets) {
    struct Case {
        const char* why;
        const char* text;
        const char* result;
    };
    constexpr Case cases[] = {
        {"between two other strings", "http://[myaddress]:80/x", "http://[fe80::1]:80/x"},
        {"alone", "[myaddress]", "[fe80::1]"},
        {"at the end", "a=[myaddress]", "a=[fe80::1]"},
        {"the second of two stays", "[myaddress] [myaddress]", "[fe80::1] [myaddress]"},
        {"no marker", "http://[other]/", "http://[other]/"},
        {"shorter than the marker", "[myaddress", "[myaddress"},
        {"empty", "", ""},
        {"an unfinished one in front", "[myaddr[myaddress]", "[myaddr[fe80::1]"},
        {"other letters", "[MyAddress]", "[MyAddress]"},
    };
    const IPAddress target = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 19642, 7);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(replaceMyAddress(c.text, target), c.result);
    }
}

TEST(MyAddress, TextMayHoldZeroBytes) {
    const std::string text("\0[myaddress]\0", 13);
    const IPAddress target = IPAddress::loopbackV6();
    EXPECT_EQ(replaceMyAddress(text, target), std::string("\0[::1]\0", 7));
}

}  // namespace
