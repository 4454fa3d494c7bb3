// What hosts should not do, and some do: two drivers at once, calls from inside the callback, a
// second start, a driver let go where it plays.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "tests/driver/DriverRig.h"
#include "tests/driver/MovedWorld.h"
#include "tests/support/LogCapture.h"
#include "wire/StreamMessage.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;

// One host with a driver and a target of its own.
class OneHost {
public:
    OneHost(SharedNetwork& network, std::size_t number)
        : target(network,
                 IPAddress::of(
                     {0xfe80, 0, 0, 0, 0, 0, 0, static_cast<std::uint16_t>(0xa0 + number)}, 0, 3)),
          host(number),
          network_(network) {
        target.target.name = "T" + std::to_string(number);
        target.onAudio = [this](std::span<const std::uint8_t> payload) {
            for (const std::uint8_t byte : payload) heard_[byte] = true;
        };
        folders.write(folders.settingPath(),
                      "TargetAddress=fe80::a" + std::to_string(number) + ",5000\nTargetPO=1\n");
        const auto mark = static_cast<int>(0x11 * (number + 1));
        host.onSwitch = [this, mark](std::int32_t half) {
            for (const ASIOBufferInfo& info : buffers) {
                std::memset(info.buffers[half], mark, frames * 4);
            }
            if (onSwitch) onSwitch();
        };
        driver = new AsioVelmora(
            nullptr, {network, machine, folders.driverFolder(), folders.roamingFolder(), [] {},
                      [this](const std::string&, const std::function<void()>& onStarted) {
                          onStarted();
                          if (program) program();
                          return true;
                      }});
        driver->AddRef();
    }
    ~OneHost() { release(); }

    static constexpr std::int32_t frames = 64;

    bool open() {
        if (driver->init(nullptr) == 0) return false;
        return createBuffers() == ASE_OK;
    }
    ASIOError createBuffers() {
        std::vector<ASIOBufferInfo> infos(2);
        infos[1].channelNum = 1;
        ASIOCallbacks table = host.callbacks();
        const ASIOError answer = driver->createBuffers(infos.data(), 2, frames, &table);
        std::memset(&table, 0xcc, sizeof table);
        if (answer == ASE_OK) buffers = infos;
        return answer;
    }
    void release() {
        if (driver != nullptr) {
            EXPECT_EQ(driver->Release(), 0u);
        }
        driver = nullptr;
    }
    bool plays() { return host.waitForSwitches(host.switches() + 3); }
    // The bytes that its target has heard, silence aside.
    std::set<int> heard() {
        return network_.alone([this](FakeNetwork&) {
            std::set<int> out;
            for (std::size_t byte = 1; byte < heard_.size(); ++byte) {
                if (heard_[byte]) out.insert(static_cast<int>(byte));
            }
            return out;
        });
    }
    int sessions() { return target.target.count(VELMORA::wire::CONNECT_REQ::id); }
    int partings() { return target.target.count(VELMORA::wire::DSICONNECT_REQ::id); }

    MovedTarget target;
    NumberedHost host;
    PlainMachine machine;
    SettingsFolders folders;
    std::function<void()> program;   // what the settings program does
    std::function<void()> onSwitch;  // on the driver's thread; set before start
    std::vector<ASIOBufferInfo> buffers;
    AsioVelmora* driver = nullptr;

private:
    SharedNetwork& network_;
    std::array<bool, 256> heard_{};  // the network's
};

// ---- two drivers in one process; each has its own time, which runs as fast as its threads do ----

TEST(HostMisuse, TwoDriversPlayEachItsOwnToItsOwnTarget) {
    SharedNetwork first, second;
    OneHost one(first, 0), two(second, 1);
    EXPECT_EQ(moduleObjectCount, 2);
    ASSERT_TRUE(one.open());
    ASSERT_EQ(one.driver->start(), ASE_OK);
    ASSERT_TRUE(two.open()) << "while the other plays";
    ASSERT_EQ(two.driver->start(), ASE_OK);
    EXPECT_TRUE(one.plays());
    EXPECT_TRUE(two.plays());

    char name[32];
    one.driver->getDriverName(name);
    EXPECT_STREQ(name, "T0");
    two.driver->getDriverName(name);
    EXPECT_STREQ(name, "T1");

    one.release();
    EXPECT_EQ(moduleObjectCount, 1);
    EXPECT_TRUE(two.plays()) << "the other goes on";
    EXPECT_EQ(two.driver->stop(), ASE_OK);
    EXPECT_EQ(one.heard(), std::set<int>{0x11});
    EXPECT_EQ(two.heard(), std::set<int>{0x22});
    EXPECT_EQ(one.partings(), 1);
    EXPECT_EQ(two.partings(), 1);
}

TEST(HostMisuse, TwoDriversKeepRatesAndFormatsApart) {
    SharedNetwork first, second;
    OneHost one(first, 0), two(second, 1);
    ASSERT_TRUE(one.open());
    ASSERT_TRUE(two.open());
    one.driver->setSampleRate(96000);
    std::int32_t dsd = kASIODSDFormat;
    one.driver->future(kAsioSetIoFormat, &dsd);
    double rate = 0;
    two.driver->getSampleRate(&rate);
    EXPECT_EQ(rate, 44100.0);
    std::int32_t format = 7;
    EXPECT_EQ(two.driver->future(kAsioGetIoFormat, &format), ASE_SUCCESS);
    EXPECT_EQ(format, kASIOPCMFormat);
    EXPECT_EQ(one.host.rateChanges, 1);
    EXPECT_EQ(two.host.rateChanges, 0);
}

// ---- start twice, stop twice ----

TEST(HostMisuse, ASecondStartIsRefusedAndTheFirstPlaysOn) {
    SharedNetwork network;
    OneHost setup(network, 0);
    ASSERT_TRUE(setup.open());
    ASSERT_EQ(setup.driver->start(), ASE_OK);
    EXPECT_TRUE(setup.plays());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(setup.driver->start(), ASE_NotPresent);
    EXPECT_TRUE(setup.plays());
    EXPECT_EQ(setup.sessions(), 1);
    EXPECT_EQ(setup.driver->stop(), ASE_OK);
    EXPECT_EQ(setup.driver->stop(), ASE_OK);
    EXPECT_EQ(setup.partings(), 1);
    EXPECT_EQ(setup.driver->start(), ASE_OK) << "after a stop it may";
    EXPECT_TRUE(setup.plays());
}

TEST(HostMisuse, ASecondStartIsRefusedEvenWhereTheTargetHasGoneMeanwhile) {
    SharedNetwork network;
    OneHost setup(network, 0);
    ASSERT_TRUE(setup.open());
    ASSERT_EQ(setup.driver->start(), ASE_OK);
    EXPECT_TRUE(setup.plays());
    network.alone([&](FakeNetwork&) { setup.target.isSilent = true; });
    while (setup.driver->stream().is_connect()) std::this_thread::yield();
    EXPECT_EQ(setup.driver->start(), ASE_NotPresent) << "the threads of the first are not joined";
    EXPECT_EQ(setup.driver->stop(), ASE_OK);
    network.alone([&](FakeNetwork&) { setup.target.isSilent = false; });
    EXPECT_EQ(setup.driver->start(), ASE_OK);
    EXPECT_TRUE(setup.plays());
}

// ---- let go while it plays, from another thread, straight after start ----

TEST(HostMisuse, ReleaseAtAnyMomentAfterStartLeavesNothingBehind) {
    for (int switches = 0; switches < 8; ++switches) {
        SharedNetwork network;
        OneHost setup(network, 0);
        ASSERT_TRUE(setup.open());
        ASSERT_EQ(setup.driver->start(), ASE_OK);
        ASSERT_TRUE(setup.host.waitForSwitches(switches));
        std::thread([&] { setup.release(); }).join();
        const int asked = setup.host.switches();
        EXPECT_EQ(network.alone([](FakeNetwork& all) { return all.openLinks(); }), 0);
        EXPECT_EQ(setup.partings(), 1);
        EXPECT_EQ(setup.host.switches(), asked) << "nobody asks a host that has gone";
        EXPECT_EQ(moduleObjectCount, 0);
    }
}

// ---- calls from inside the callback, on the thread that would have to end ----

struct InsideCase {
    const char* why;
    ASIOError (*call)(OneHost& setup);
    ASIOError answer;
    bool endsTheStream;
};

ASIOError initInside(OneHost& setup) {
    return setup.driver->init(nullptr);
}
ASIOError createInside(OneHost& setup) {
    std::vector<ASIOBufferInfo> infos(2);
    ASIOCallbacks table = setup.host.callbacks();
    return setup.driver->createBuffers(infos.data(), 1, 64, &table);
}

const InsideCase insideCases[] = {
    {"stop", [](OneHost& s) { return s.driver->stop(); }, ASE_OK, true},
    {"stop twice",
     [](OneHost& s) {
         s.driver->stop();
         return s.driver->stop();
     },
     ASE_OK, true},
    {"disposeBuffers", [](OneHost& s) { return s.driver->disposeBuffers(); }, ASE_OK, true},
    {"start", [](OneHost& s) { return s.driver->start(); }, ASE_NotPresent, false},
    {"start behind a stop",
     [](OneHost& s) {
         s.driver->stop();
         return s.driver->start();
     },
     ASE_NotPresent, true},
    {"init", initInside, 1, false},
    {"createBuffers", createInside, ASE_InvalidMode, true},
    {"controlPanel that changes nothing", [](OneHost& s) { return s.driver->controlPanel(); },
     ASE_OK, false},
    {"controlPanel that changes the settings",
     [](OneHost& s) {
         s.program = [&s] {
             s.folders.write(s.folders.settingPath(),
                             "TargetAddress=fe80::a0,5000\nTargetPO=1\nStartDelay=1\n");
         };
         return s.driver->controlPanel();
     },
     1, true},
    {"setSampleRate", [](OneHost& s) { return s.driver->setSampleRate(48000); }, ASE_OK, false},
    {"another format",
     [](OneHost& s) {
         std::int32_t dsd = kASIODSDFormat;
         return s.driver->future(kAsioSetIoFormat, &dsd);
     },
     ASE_SUCCESS, false},
};

TEST(HostMisuse, CallsInsideTheCallbackAreAnsweredAndLockNobodyUp) {
    for (const InsideCase& c : insideCases) {
        SCOPED_TRACE(c.why);
        SharedNetwork network;
        OneHost setup(network, 0);
        std::atomic<bool> hasStarted{false}, isDone{false};
        std::atomic<ASIOError> answer{-1};
        int switches = 0;  // the worker's
        setup.onSwitch = [&] {
            // Time runs ahead here: a host that plays has long come back from start.
            while (!hasStarted) std::this_thread::yield();
            if (++switches != 3) return;
            answer = c.call(setup);
            isDone = true;
        };
        ASSERT_TRUE(setup.open());
        ASSERT_EQ(setup.driver->start(), ASE_OK);
        hasStarted = true;
        while (!isDone) std::this_thread::yield();
        EXPECT_EQ(answer, c.answer);
        if (!c.endsTheStream) {
            EXPECT_TRUE(setup.plays());
        }
        EXPECT_EQ(setup.driver->stop(), ASE_OK);
        EXPECT_EQ(setup.partings(), 1);

        // And all is well for whoever opens it again.
        std::int32_t pcm = kASIOPCMFormat;
        setup.driver->future(kAsioSetIoFormat, &pcm);
        EXPECT_EQ(setup.createBuffers(), ASE_OK);
        EXPECT_EQ(setup.driver->start(), ASE_OK);
        EXPECT_TRUE(setup.plays());
        EXPECT_EQ(setup.driver->stop(), ASE_OK);
        EXPECT_EQ(setup.partings(), 2);
    }
}

TEST(HostMisuse, AStopInsideTheCallbackAndReleaseOutsideEndTheDriver) {
    SharedNetwork network;
    OneHost setup(network, 0);
    std::atomic<bool> hasStarted{false}, isDone{false};
    setup.onSwitch = [&] {
        while (!hasStarted) std::this_thread::yield();
        if (!isDone) setup.driver->stop();
        isDone = true;
    };
    ASSERT_TRUE(setup.open());
    ASSERT_EQ(setup.driver->start(), ASE_OK);
    hasStarted = true;
    while (!isDone) std::this_thread::yield();
    setup.release();
    EXPECT_EQ(moduleObjectCount, 0);
    EXPECT_EQ(setup.partings(), 1);
}

#if GTEST_HAS_DEATH_TEST
// The one call that cannot be answered: the thread would have to wait for its own end, in an object
// that is gone when it returns. It ends the process there and then; every other call above does
// not.
TEST(HostMisuseDeathTest, ReleaseInsideTheCallbackEndsTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto releaseInside = [] {
        SharedNetwork network;
        OneHost setup(network, 0);
        std::atomic<bool> hasStarted{false};
        setup.onSwitch = [&] {
            while (!hasStarted) std::this_thread::yield();
            setup.release();
        };
        if (!setup.open() || setup.driver->start() != ASE_OK) return;
        hasStarted = true;
        for (;;) std::this_thread::yield();
    };
    EXPECT_DEATH(releaseInside(), "terminate called");
}
#endif

}  // namespace
