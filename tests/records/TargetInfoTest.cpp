#include "driver/TargetInfo.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using VELMORA::FindSetting;
using VELMORA::TargetInfo;
using VELMORA::TargetMap;
using ZENNO::IPAddress;

IPAddress key(std::uint8_t lastByte, std::uint8_t portHigh, std::uint8_t portLow,
              std::uint32_t scope) {
    IPAddress a;
    a.address[0] = 0xfe;
    a.address[1] = 0x80;
    a.address[15] = lastByte;
    a.port = {portHigh, portLow};
    a.scope = scope;
    return a;
}

TEST(FindSetting, LetsEverythingPassUntilToldOtherwise) {
    const FindSetting setting;
    EXPECT_EQ(setting.filterID, 0u);
    EXPECT_EQ(setting.maxVersion, 0u);
    EXPECT_EQ(setting.clientName, "");
    EXPECT_FALSE(setting.nopBreak);
    EXPECT_FALSE(setting.loopback);
    EXPECT_TRUE(setting.furtherIDs.empty());
    EXPECT_EQ(setting.ownID, 0u);
}

TEST(TargetInfo, IsNobodyAtFirst) {
    const TargetInfo info;
    EXPECT_EQ(info.productID, 0u);
    EXPECT_EQ(info.reserved, 0u);
    EXPECT_EQ(info.sinkNo, 0u);
    EXPECT_EQ(info.version, 0u);
    EXPECT_EQ(info.targetName + info.configText + info.sinkName, "");
    EXPECT_TRUE(info.findAddress.isNone());
}

// The first element is the target that a driver without a fixed address takes.
TEST(TargetMap, SortsByAddressBytesThenPortBytesThenScope) {
    TargetMap map;
    for (const IPAddress& k : {
             key(2, 0, 1, 1),          // lowest port, higher address
             key(1, 0x4c, 0xba, 1),    // ports compare high byte first: 19642
             key(1, 0x01, 0xff, 1),    // 511, whose low byte is the greater
             key(1, 0x02, 0x00, 1),    // 512
             key(1, 0x02, 0x00, 256),  // a scope is a number, not bytes
             key(1, 0x02, 0x00, 3),
         }) {
        map[k] = {};
    }
    const std::vector<IPAddress> sorted = {
        key(1, 0x01, 0xff, 1),   key(1, 0x02, 0x00, 1), key(1, 0x02, 0x00, 3),
        key(1, 0x02, 0x00, 256), key(1, 0x4c, 0xba, 1), key(2, 0, 1, 1),
    };
    std::vector<IPAddress> found;
    for (const auto& [address, info] : map) found.push_back(address);
    EXPECT_EQ(found, sorted);
}

TEST(TargetMap, ALowerPortWithHigherAddressBytesComesLater) {
    TargetMap map;
    map[key(9, 0, 1, 0)].targetName = "higher address";
    map[key(8, 0xff, 0xff, 0)].targetName = "lower address";
    EXPECT_EQ(map.begin()->second.targetName, "lower address");
}

TEST(TargetMap, OneTargetOnTwoInterfacesIsTwoKeys) {
    TargetMap map;
    map[key(1, 0x4c, 0xba, 2)] = {};
    map[key(1, 0x4c, 0xba, 3)] = {};
    EXPECT_EQ(map.size(), 2u);
}

}  // namespace
