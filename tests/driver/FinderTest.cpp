// The finder: discovery for a settings program, and where this driver's files lie.
#include "driver/Finder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "driver/Product.h"
#include "platform/System.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedTarget.h"

namespace velmora_test {
namespace {

namespace wire = VELMORA::wire;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::asio_velmora_find;
using VELMORA::FinderMap;
using VELMORA::FinderRecord;

constexpr std::uint32_t eth0 = 3;
constexpr std::uint64_t korvente = 0x45544E4556524F4B;  // the text, its first character lowest

IPAddress linkLocal(std::uint16_t last, std::uint16_t port, std::uint32_t scope = eth0) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last}, port, scope);
}
IPAddress control(std::uint16_t last, std::uint32_t scope = eth0) {
    return linkLocal(last, 19642, scope);
}

class NoMachine final : public VELMORA::Machine {
public:
    std::int32_t physicalCoreCount() noexcept override { return 1; }
    std::uint32_t processPriorityClass() noexcept override { return 32; }
    bool setThreadPriority(ZENNO::platform::Priority) noexcept override { return true; }
    bool setThreadAffinity(std::uint64_t) noexcept override { return true; }
    bool setProcessAffinity(std::uint64_t) noexcept override { return true; }
    std::thread startThread(std::function<void()>) override {
        ADD_FAILURE() << "a finder starts no thread";
        return {};
    }
};

class Finder : public testing::Test {
protected:
    Finder() {
        network.delay = 0;
        target.product = korvente;
        target.name = "room";
        target.sinks = {{6000, 1, "left"}};
    }
    Surroundings surroundings() {
        return {network,
                machine,
                "C:\\module\\",
                "C:\\roaming",
                [] { ADD_FAILURE() << "a finder opens no log"; },
                [](const std::string&, const std::function<void()>&) { return false; }};
    }
    asio_velmora_find made(const std::string& kind = "") {
        return {driverProductName, kind, driverReleaseText, surroundings()};
    }
    bool find(const std::list<IPAddress>& addresses = {}, std::uint32_t interfaceIndex = 0) {
        return made().find(out, addresses, interfaceIndex);
    }
    std::vector<IPAddress> keys() const {
        std::vector<IPAddress> all;
        for (const auto& [key, record] : out) all.push_back(key);
        return all;
    }
    // What an `out` that was used before holds.
    void leaveOver() { out[linkLocal(99, 1)].targetName = "left over"; }

    FakeNetwork network;
    LogCapture log{7};
    NoMachine machine;
    FinderMap out;
    ScriptedTarget target{network, control(1)};
};

// ---- find ----

TEST_F(Finder, TellsEachSinkAsAPersonIsShownIt) {
    target.configText = "http://[myaddress]/";
    target.sinks = {{6000, 1, "left"}, {6001, 0, ""}};
    leaveOver();
    EXPECT_TRUE(find());
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6000), linkLocal(1, 6001)}));
    const FinderRecord& left = out.at(linkLocal(1, 6000));
    EXPECT_EQ(left.productID, korvente);
    EXPECT_EQ(left.reserved, 0);
    EXPECT_EQ(left.sinkNo, 1);
    EXPECT_EQ(left.version, 1);
    EXPECT_EQ(left.targetName, "room(left)");
    EXPECT_EQ(left.configText, "http://[fe80::1]/");
    EXPECT_EQ(left.findAddress, control(1));
    const FinderRecord& second = out.at(linkLocal(1, 6001));
    EXPECT_EQ(second.sinkNo, 2);
    EXPECT_EQ(second.version, 0);
    EXPECT_EQ(second.targetName, "room") << "a sink without a name";
}

TEST_F(Finder, FindsNobodyAndIsContent) {
    network.attach(control(1), nullptr);
    leaveOver();
    EXPECT_TRUE(find());
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Finder, AsksAsASearchDoesAndWithoutNopBreak) {
    EXPECT_TRUE(find());
    EXPECT_THAT(target.order(),
                ElementsAre("multicast FIND_REQ 0", "multicast FIND_REQ 0", "multicast FIND_REQ 0",
                            "HELLO_REQ", "HELLO_REQ", "SINK_REQ 0", "CONFIG_REQ", "SINK_REQ 1"));
}

TEST_F(Finder, GreetsWithAllOnesAndItsName) {
    EXPECT_TRUE(find());
    const Bytes expected = {0x64, 0,    0x20, 0,    22,   0,   1,   0,   0xff, 0xff, 0xff,
                            0xff, 0xff, 0xff, 0xff, 0xff, 'K', 'O', 'R', 'V',  'E',  'N',
                            'T',  'E',  ' ',  'V',  'e',  'l', 'm', 'o', 'r',  'a'};
    int greetings = 0;
    for (const auto& seen : target.seen) {
        if (seen.id != wire::HELLO_REQ::id) continue;
        EXPECT_EQ(seen.data, expected);
        ++greetings;
    }
    EXPECT_EQ(greetings, 2);
}

TEST_F(Finder, GreetsWithTheNameThatItWasGiven) {
    asio_velmora_find other("A", "", "r", surroundings());
    EXPECT_TRUE(other.find(out, {}, 0));
    const Bytes expected = {0x64, 0,    0x1f, 0,    22,  0, 1, 0, 0xff, 0xff, 0xff, 0xff,
                            0xff, 0xff, 0xff, 0xff, 'A', 0, 0, 0, 0,    0,    0,    0};
    ASSERT_GT(target.seen.size(), 3u);
    EXPECT_EQ(target.seen[3].data, expected);
}

TEST_F(Finder, TakesItsOwnProductAndThoseThatDoNotTellTheirs) {
    ScriptedTarget nameless(network, control(2)), foreign(network, control(3));
    nameless.sinks = foreign.sinks = {{6000, 1, ""}};
    foreign.product = 7;
    EXPECT_TRUE(find());
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6000), linkLocal(2, 6000)}));
    EXPECT_TRUE(log.has(6, "Find Skip : 7 " + std::to_string(korvente)));
    EXPECT_EQ(foreign.count(wire::SINK_REQ::id), 0);
}

TEST_F(Finder, SkipsSinksOfANewerVersionThan1) {
    target.sinks = {{6000, 2, "new"}, {6001, 1, "known"}, {6002, 0, "old"}};
    EXPECT_TRUE(find());
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6001), linkLocal(1, 6002)}));
    EXPECT_TRUE(log.has(6, "Velmora Find protocol version not much : 1<2"));
}

TEST_F(Finder, TellsTheSinksInTheOrderOfTheirAddresses) {
    ScriptedTarget second(network, control(2));
    second.product = korvente;
    second.sinks = {{7001, 1, "b"}, {7000, 1, "a"}};
    target.sinks = {{9000, 1, "x"}};
    EXPECT_TRUE(find());
    EXPECT_EQ(keys(),
              (std::vector<IPAddress>{linkLocal(1, 9000), linkLocal(2, 7000), linkLocal(2, 7001)}));
    EXPECT_EQ(out.begin()->second.targetName, "room(x)");
    EXPECT_EQ(out.at(linkLocal(2, 7000)).sinkNo, 2);
}

TEST_F(Finder, TellsATargetOnTwoLinksTwice) {
    network.interfaces[linkLocal(0x105, 0, 5)] = {"wlan0", "second adapter"};
    target.alsoAt(control(1, 5));
    EXPECT_TRUE(find());
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6000), linkLocal(1, 6000, 5)}));
}

TEST_F(Finder, AsksOnOneInterfaceWhenItIsToldWhich) {
    network.interfaces[linkLocal(0x105, 0, 5)] = {"wlan0", "second adapter"};
    target.alsoAt(control(1, 5));
    EXPECT_TRUE(find({}, 5));
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6000, 5)}));
    for (const Datagram& datagram : network.sent) {
        if (datagram.toPeer) {
            EXPECT_EQ(datagram.to.scope, 5u);
        }
    }
    EXPECT_TRUE(find({}, eth0));
    EXPECT_EQ(keys(), (std::vector<IPAddress>{linkLocal(1, 6000)}));
}

TEST_F(Finder, AlsoAsksTheAddressesThatItIsGiven) {
    const IPAddress far = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 5}, 19642, 0);
    const IPAddress otherPort = IPAddress::of({0x2001, 0xdb8, 0, 0, 0, 0, 0, 6}, 1234, 0);
    ScriptedTarget second(network, far), third(network, otherPort);
    second.product = third.product = korvente;
    second.sinks = third.sinks = {{6000, 1, ""}};
    EXPECT_TRUE(find({otherPort, far}));
    EXPECT_EQ(out.size(), 3u);
    EXPECT_EQ(out.begin()->second.findAddress, far);
    EXPECT_EQ(second.seen.front().multicast, false);
    EXPECT_EQ(second.count(wire::FIND_REQ::id), 3);
    EXPECT_EQ(third.count(wire::FIND_REQ::id), 3);

    EXPECT_TRUE(find());
    EXPECT_EQ(out.size(), 1u) << "they are not remembered";
}

TEST_F(Finder, SearchesEvenWhereTheInterfaceCannotBeOpened) {
    leaveOver();
    EXPECT_FALSE(find({}, 9)) << "the search has no socket to wait on";
    EXPECT_THAT(out, IsEmpty());
    EXPECT_TRUE(log.has(7, "Find Multi Send : 3")) << "but it was begun";

    // Where there is no link at all, the search has nothing to fail with.
    log.clear();
    network.interfaces.clear();
    leaveOver();
    EXPECT_TRUE(find({}, 9));
    EXPECT_THAT(out, IsEmpty());

    network.interfacesFail = true;
    EXPECT_TRUE(find({}, 9));
    EXPECT_EQ(log.count("error getMyLocalAddresV6 Find::open"), 4)
        << "one of the opening, three of the search";
}

TEST_F(Finder, IsEmptyHandedWhereTheSearchFails) {
    // In the middle, with a sink found already.
    target.sinks.push_back({6001, 1, "right"});
    target.onRequest = [&](const ScriptedTarget::Seen& seen) {
        if (seen.id == wire::SINK_REQ::id && seen.arg[0] == 2) network.waitFails = true;
    };
    leaveOver();
    EXPECT_FALSE(find());
    EXPECT_THAT(out, IsEmpty());

    network.waitFails = false;
    network.openFails = true;
    leaveOver();
    EXPECT_FALSE(find());
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(Finder, OpensAndClosesSocketsOfItsOwnEachTime) {
    asio_velmora_find finder = made();
    EXPECT_EQ(network.openLinks(), 0);
    target.onRequest = [&](const ScriptedTarget::Seen&) { EXPECT_EQ(network.openLinks(), 1); };
    EXPECT_TRUE(finder.find(out, {}, 0));
    EXPECT_EQ(network.openLinks(), 0);
    const auto firstPort = network.sent.front().from.portNumber();
    network.clearSent();
    EXPECT_TRUE(finder.find(out, {}, 0));
    EXPECT_EQ(network.openLinks(), 0);
    EXPECT_NE(network.sent.front().from.portNumber(), firstPort);
    EXPECT_EQ(out.size(), 1u);
}

// ---- paths and names ----

TEST_F(Finder, TellsWhereTheUsersSettingsLie) {
    EXPECT_EQ(made().settingPath(), "C:\\roaming\\KORVENTE Velmora\\setting.inf");
    asio_velmora_find other("Other", "kind", "r", surroundings());
    EXPECT_EQ(other.settingPath(), "C:\\roaming\\Other\\setting.inf");
}

TEST_F(Finder, TellsTheFactorySettingsBesideTheRunningProgram) {
    const std::string program = ZENNO::platform::processPath();
    const auto end = program.find_last_of('\\');
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(made().settingOrgPath(), program.substr(0, end + 1) + "setting_org.inf")
        << "not beside the module";
}

TEST_F(Finder, TellsTheTwoIdentifiers) {
    EXPECT_EQ(made().findID(), korvente);
    EXPECT_EQ(made().productID(), korvente);
}

TEST_F(Finder, MakesPathAndNameOfTheReleaseFromItsKind) {
    struct Case {
        const char* why;
        const char* kind;
        const char* path;
        const char* name;
    };
    constexpr Case cases[] = {
        {"this driver", "", "", "1_112_1"},
        {"the one that is named", "Velmora", "quorvelandine/Velmora/asio_sync",
         "Velmora_ASIO_1_112_1"},
        {"in other letters", "velmora", "velmora", "1_112_1"},
        {"with something behind", "Velmora_", "Velmora_", "1_112_1"},
        {"12 characters", "quorvelandin", "quorvelandin", "1_112_1"},
        {"13 characters", "quorvelandine", "quorvelandine/KORVENTE/asio_sync/",
         "KORVENTE_ASIO_1_112_1"},
        {"13 others", "quorvelandinX", "quorvelandinX", "1_112_1"},
        {"13 others, capital", "Quorvelandine", "Quorvelandine", "1_112_1"},
        {"14 characters", "quorvelandine_", "quorvelandine/KORVENTE/asio_sync/",
         "KORVENTE_ASIO_1_112_1"},
        {"14, the last is dropped whatever it is", "quorvelandineX",
         "quorvelandine/KORVENTE/asio_sync/", "KORVENTE_ASIO_1_112_1"},
        {"15 characters", "quorvelandine_a", "quorvelandine/KORVENTE/asio_sync_a/",
         "KORVENTE_ASIO_a_1_112_1"},
        {"a word behind", "quorvelandine_abc", "quorvelandine/KORVENTE/asio_sync_abc/",
         "KORVENTE_ASIO_abc_1_112_1"},
        {"a word behind anything", "quorvelandine/a_b/", "quorvelandine/KORVENTE/asio_sync_a_b//",
         "KORVENTE_ASIO_a_b/_1_112_1"},
        {"14 others", "quorvelandinX_", "quorvelandinX_", "1_112_1"},
        {"long others", "quorvelandinX_abc", "quorvelandinX_abc", "1_112_1"},
        {"not at the beginning", "a quorvelandine_abc", "a quorvelandine_abc", "1_112_1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(made(c.kind).releasePath(), c.path);
        EXPECT_EQ(made(c.kind).releaseName(), c.name);
    }
}

TEST_F(Finder, KeepsTheTextsThatItWasGiven) {
    asio_velmora_find other("n", "quorvelandine_x", "9", surroundings());
    EXPECT_EQ(other.releaseName(), "KORVENTE_ASIO_x_9");
    asio_velmora_find named("n", "Velmora", "9", surroundings());
    EXPECT_EQ(named.releaseName(), "Velmora_ASIO_9");
    asio_velmora_find none("n", "k", "", surroundings());
    EXPECT_EQ(none.releaseName(), "");
}

TEST(MadeFinder, IsThisDrivers) {
    const std::unique_ptr<VELMORA::asio_velmora_find_call> finder(VELMORA::makeFinder());
    ASSERT_NE(finder, nullptr);
    EXPECT_EQ(finder->findID(), korvente);
    EXPECT_EQ(finder->productID(), korvente);
    EXPECT_EQ(finder->releasePath(), "");
    EXPECT_EQ(finder->releaseName(), "1_112_1");
    EXPECT_EQ(finder->settingPath(),
              ZENNO::platform::roamingFolder() + "\\KORVENTE Velmora\\setting.inf");
    const std::unique_ptr<VELMORA::asio_velmora_find_call> another(VELMORA::makeFinder());
    EXPECT_NE(another.get(), finder.get());
}

}  // namespace
}  // namespace velmora_test
