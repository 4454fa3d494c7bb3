#include "src/Network/LocalInterfaces.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "src/Network/InterfaceMap.h"
#include "tests/support/Namespace.h"

namespace {

using namespace ZENNO;
using namespace velmora_test;
using platform::Adapter;

const IPAddress linkLocal = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1});
const IPAddress linkLocal2 = IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 2});
const IPAddress global = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
const IPAddress almost = IPAddress::of({0xfe81, 0, 0, 0, 0, 0, 0, 1});
const IPAddress loopback = IPAddress::loopbackV6();
const IPAddress mapped = IPAddress::of({0, 0, 0, 0, 0, 0xffff, 0xc000, 0x0201});

IPAddress on(IPAddress address, std::uint32_t scope) {
    address.scope = scope;
    return address;
}

Adapter adapter(std::uint32_t index, const char* name, std::vector<IPAddress> addresses) {
    Adapter out{index, name, std::string(name) + " description", {}};
    for (const IPAddress& address : addresses) out.addresses.push_back({address.address, {}, 0});
    return out;
}

std::vector<IPAddress> keysOf(const LocalInterfaceMap& map) {
    std::vector<IPAddress> keys;
    for (const auto& [address, names] : map) keys.push_back(address);
    return keys;
}

TEST(InterfaceMap, Keys) {
    const struct {
        const char* why;
        std::vector<Adapter> adapters;
        std::vector<IPAddress> keys;
    } cases[] = {
        {"no adapter", {}, {}},
        {"an adapter without addresses", {adapter(2, "a", {})}, {}},
        {"two link-local addresses on one adapter are two keys with one scope",
         {adapter(2, "a", {linkLocal2, linkLocal})},
         {on(linkLocal, 2), on(linkLocal2, 2)}},
        {"one address on two adapters is two keys",
         {adapter(7, "b", {linkLocal}), adapter(5, "a", {linkLocal})},
         {on(linkLocal, 5), on(linkLocal, 7)}},
        {"loopback and global addresses carry the adapter's number as well",
         {adapter(1, "lo", {loopback}), adapter(2, "a", {global})},
         {on(loopback, 1), on(global, 2)}},
        {"IPv4 in mapped form", {adapter(3, "c", {mapped})}, {on(mapped, 3)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(keysOf(interfaceMap(c.adapters)), c.keys);
    }
}

TEST(InterfaceMap, NamesAreTheAdaptersAndTheLaterOneStays) {
    const auto map =
        interfaceMap({adapter(2, "first", {linkLocal, global}), adapter(2, "second", {linkLocal})});
    EXPECT_EQ(map.at(on(linkLocal, 2)).name, "second");
    EXPECT_EQ(map.at(on(linkLocal, 2)).description, "second description");
    EXPECT_EQ(map.at(on(global, 2)).name, "first");
}

TEST(InterfaceMap, LinkLocalSelection) {
    const auto all = interfaceMap(
        {adapter(1, "lo", {loopback}), adapter(2, "a", {linkLocal, almost, global, mapped})});
    LocalInterfaceMap map = all;
    keepLinkLocal(map, /*keepLoopback=*/false);
    EXPECT_EQ(keysOf(map), (std::vector{on(linkLocal, 2)}));
    map = all;
    keepLinkLocal(map, /*keepLoopback=*/true);
    EXPECT_EQ(keysOf(map), (std::vector{on(loopback, 1), on(linkLocal, 2)}));
}

// What any machine has: where the list can be had, ::1 is in it. (Under Wine it cannot, unless a
// name server with an IPv6 address is configured.)
TEST(LocalInterfaces, LoopbackIsThereWithItsAdaptersNumber) {
    LocalInterfaceMap map{{global, {}}};
    if (!getMyLocalAddresV6(map)) {
        EXPECT_TRUE(map.empty());
        EXPECT_FALSE(getMyLinkLocalAddresV6(map, true));
        GTEST_SKIP() << "the system gives no list of adapters";
    }
    const auto found = std::find_if(map.begin(), map.end(),
                                    [](const auto& entry) { return entry.first.isLoopback(); });
    ASSERT_NE(found, map.end());
    EXPECT_NE(found->first.scope, 0u);
    EXPECT_EQ(found->first.portNumber(), 0);
    EXPECT_FALSE(found->second.name.empty());

    LocalInterfaceMap kept;
    ASSERT_TRUE(getMyLinkLocalAddresV6(kept, true));
    EXPECT_TRUE(kept.contains(found->first));
    ASSERT_TRUE(getMyLinkLocalAddresV6(kept, false));
    EXPECT_FALSE(kept.contains(found->first));
}

TEST(LocalInterfaces, AdaptersWithoutAddressesAreAnEmptyList) {
    VELMORA_IN_NAMESPACE(Wiring::bare, [](const Cable&) {
        LocalInterfaceMap map{{global, {}}};
        EXPECT_TRUE(getMyLocalAddresV6(map));
        EXPECT_TRUE(map.empty());
        EXPECT_TRUE(getMyLocalAddresV4(map));
        EXPECT_TRUE(map.empty());
    });
}

TEST(LocalInterfaces, ListsEveryAddressOfEveryAdapter) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        runIp("addr add fe80::1/64 dev near");
        runIp("addr add fe80::1/64 dev far");
        runIp("addr add 2001:db8::1/64 dev near");
        runIp("addr add 192.0.2.1/24 dev far");
        runIp("link set far down");  // the state does not matter; its own addresses go with it
        runIp("link set far up");

        LocalInterfaceMap map;
        ASSERT_TRUE(getMyLocalAddresV6(map));
        EXPECT_TRUE(map.contains(on(loopback, cable.loopback)));
        EXPECT_TRUE(map.contains(on(linkLocal, cable.near)));
        EXPECT_TRUE(map.contains(on(global, cable.near)));
        EXPECT_EQ(map.at(on(global, cable.near)).name, "near");
        EXPECT_EQ(std::count_if(map.begin(), map.end(),
                                [&](const auto& entry) {
                                    return entry.first.isLinkLocal() &&
                                           entry.first.scope == cable.near;
                                }),
                  2);
        EXPECT_FALSE(map.contains(on(mapped, cable.far)));

        LocalInterfaceMap four;
        ASSERT_TRUE(getMyLocalAddresV4(four));
        EXPECT_EQ(
            keysOf(four),
            (std::vector{on(IPAddress::of({0, 0, 0, 0, 0, 0xffff, 0x7f00, 1}), cable.loopback),
                         on(mapped, cable.far)}));

        ASSERT_TRUE(getMyLinkLocalAddresV6(map, /*keepLoopback=*/false));
        EXPECT_FALSE(map.contains(on(loopback, cable.loopback)));
        EXPECT_FALSE(map.contains(on(global, cable.near)));
        EXPECT_TRUE(map.contains(on(linkLocal, cable.near)));
    });
}

}  // namespace
