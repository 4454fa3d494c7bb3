// Fifty hosts one after the other in one process, each with a whole session over real sockets:
// memory, descriptors and threads are afterwards what they were after the first few. For systems
// that show them below /proc.
#include <gtest/gtest.h>

#if __has_include(<malloc.h>) && __has_include(<sys/wait.h>)

#include <malloc.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/Log.h"
#include "src/Network/LocalInterfaces.h"
#include "tests/driver/DriverRig.h"
#include "tests/driver/MovedWorld.h"
#include "tests/support/Namespace.h"
#include "tests/support/Sockets.h"

namespace {

using namespace velmora_test;

int entriesOf(const char* folder) {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
}

struct Holdings {
    int descriptors = 0, threads = 0;
    std::size_t bytes = 0;
};
// Of this process. A thread that has been joined stays in the list for a moment: it is given some
// to leave, down to `threads`.
Holdings holdings(int threads) {
    for (int looks = 0; looks < 10000 && entriesOf("/proc/self/task") > threads; ++looks) {
        std::this_thread::yield();
    }
    return {entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"), mallinfo2().uordblks};
}

IPAddress linkLocalOf(std::uint32_t scope) {
    ZENNO::LocalInterfaceMap map;
    EXPECT_TRUE(ZENNO::getMyLinkLocalAddresV6(map, false));
    for (const auto& [address, names] : map) {
        if (address.scope == scope) return address;
    }
    ADD_FAILURE() << "no link-local address on interface " << scope;
    return {};
}

// A StreamTarget with real sockets, one thread for all of them.
class SocketTarget {
public:
    explicit SocketTarget(const IPAddress& address) : target_(address) {
        target_.keepsAudio = false;
        for (std::size_t i = 0; i < sockets_.size(); ++i) {
            IPAddress any;
            any.setPortNumber(target_.addresses()[i].portNumber());
            EXPECT_TRUE(sockets_[i].open(ZENNO::SocketKind::udpV6));
            EXPECT_TRUE(sockets_[i].bindV6(any)) << sockets_[i].lastError();
        }
        thread_ = std::thread([this] { serve(); });
    }
    ~SocketTarget() {
        over_ = true;
        thread_.join();
    }

private:
    void serve() {
        ZENNO::Bytes data;
        IPAddress from;
        while (!over_) {
            for (ZENNO::Socket& socket : sockets_) {
                while (socket.waitReadable(300) == ZENNO::waitReady) {
                    socket.receiveFrom(data, from);
                    for (const ZENNO::Bytes& answer : target_.answer(data)) {
                        socket.sendDatagramTo(answer, from, /*retry=*/true);
                    }
                }
            }
        }
    }

    StreamTarget target_;
    std::array<ZENNO::Socket, 3> sockets_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

// Init to Release; whether audio went on the way. On a busy machine the target's thread may sleep
// through the driver's tenth of a second: then the host sees no device, or one without channels.
bool playsASession(const Surroundings& surroundings, NumberedHost& host, bool stops) {
    auto* driver = new AsioVelmora(nullptr, surroundings);
    driver->AddRef();
    std::array<ASIOBufferInfo, 2> infos{};
    infos[1].channelNum = 1;
    ASIOCallbacks table = host.callbacks();
    const bool plays = driver->init(nullptr) == 1 &&
                       driver->createBuffers(infos.data(), 2, 64, &table) == ASE_OK &&
                       driver->start() == ASE_OK;
    if (plays) {
        EXPECT_TRUE(host.waitForSwitches(host.switches() + 2));
        if (stops) {
            EXPECT_EQ(driver->stop(), ASE_OK);
        }
    }
    EXPECT_EQ(driver->Release(), 0u);
    return plays;
}

TEST(Leak, FiftySessionsOverRealSocketsLeaveNothing) {
    VELMORA_IN_NAMESPACE(Wiring::cable, [](const Cable& cable) {
        SettingsFolders folders;
        folders.write(folders.settingPath(),
                      "TargetAddress=" + linkLocalOf(cable.far).text() +
                          ",5000\nTargetPO=1\nInterface=" + std::to_string(cable.near) + "\n");
        SocketTarget target(linkLocalOf(cable.far));
        PlainMachine machine;
        NumberedHost host(0);
        const Surroundings surroundings{
            ZENNO::systemEnvironment(),
            machine,
            folders.driverFolder(),
            folders.roamingFolder(),
            [] { ZENNO::createLogger(); },
            [](const std::string&, const std::function<void()>&) { return false; }};

        const int threads = entriesOf("/proc/self/task");
        constexpr int first = 10, all = 50, mostMissed = 200;
        int missed = 0;
        Holdings before;
        for (int i = 0; i < all && missed < mostMissed;) {
            if (i == first) before = holdings(threads);
            // Some stop first, some do not.
            if (playsASession(surroundings, host, i % 2 == 0)) {
                ++i;
            } else {
                ++missed;
            }
        }
        EXPECT_LT(missed, mostMissed);
        const Holdings after = holdings(threads);
        EXPECT_EQ(after.descriptors, before.descriptors);
        EXPECT_EQ(after.threads, before.threads);
        // What the target and this test keep themselves is their own.
        EXPECT_LE(after.bytes, before.bytes + 40 * 1024) << "bytes, of " << before.bytes;
    });
}

TEST(Leak, FiftyDriversThatNobodyUsesLeaveNothing) {
    SettingsFolders folders;
    PlainMachine machine;
    const Surroundings surroundings{
        ZENNO::systemEnvironment(),
        machine,
        folders.driverFolder(),
        folders.roamingFolder(),
        [] { ZENNO::createLogger(); },
        [](const std::string&, const std::function<void()>&) { return false; }};
    const LogCapture log(-1);  // what the drivers open is put away again when this goes
    const int threads = entriesOf("/proc/self/task");
    Holdings before;
    for (int i = 0; i < 50; ++i) {
        if (i == 10) before = holdings(threads);
        AsioVelmora driver(nullptr, surroundings);
    }
    const Holdings after = holdings(threads);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.bytes, before.bytes);
}

}  // namespace

#endif
