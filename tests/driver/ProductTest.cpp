#include "driver/Product.h"

#include <gtest/gtest.h>

namespace {

TEST(Product, PacksEightCharactersTheFirstLowest) {
    EXPECT_EQ(packIdentifier("KORVENTE"), 0x45544E4556524F4Bull);
    EXPECT_EQ(packIdentifier("KORVENTE and more"), 0x45544E4556524F4Bull);
    EXPECT_EQ(packIdentifier("KORVENT"), ~0ull);
    EXPECT_EQ(packIdentifier(""), ~0ull);
    EXPECT_EQ(packIdentifier("\xff\xff\xff\xff\xff\xff\xff\xff"), ~0ull);
    EXPECT_EQ(ProductID, FindID);
}

TEST(Product, AsksDiscoveryForWhatItMayTake) {
    struct Case {
        const char* why;
        std::uint64_t product, find, filter;
        std::vector<std::uint64_t> further;
    };
    const Case cases[] = {
        {"the same text: one identifier is enough", 7, 7, 7, {}},
        {"two identifiers: both pass", 7, 9, 7, {9}},
        {"no product: what is looked for", 0, 9, 9, {}},
        {"nothing looked for: every target passes", 7, 0, 0, {}},
        {"neither", 0, 0, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const auto setting = makeFindSetting(c.product, c.find, 5, "client", true);
        EXPECT_EQ(setting.filterID, c.filter);
        EXPECT_EQ(setting.furtherIDs, c.further);
        EXPECT_EQ(setting.maxVersion, 1);
        EXPECT_EQ(setting.clientName, "client");
        EXPECT_TRUE(setting.nopBreak);
        EXPECT_FALSE(setting.loopback);
        EXPECT_EQ(setting.ownID, 5u);
    }
}

TEST(Product, ASinkStandsInBracketsBehindItsTarget) {
    EXPECT_EQ(displayName("T", "S"), "T(S)");
    EXPECT_EQ(displayName("T", ""), "T");
    EXPECT_EQ(displayName("", "S"), "(S)");
}

}  // namespace
