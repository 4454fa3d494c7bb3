#include "apps/velmora-play/DriverLog.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "tests/apps/Scratch.h"
#include "tests/support/Namespace.h"

namespace {

using velmora_play::DriverLog;
using velmora_test::contents;

void send(std::uint16_t port, const std::string& text) {
    const auto link = ZENNO::systemEnvironment().makeLink();
    ASSERT_TRUE(link->open(ZENNO::SocketKind::udpV6));
    const auto* data = reinterpret_cast<const std::uint8_t*>(text.data());
    ASSERT_TRUE(link->sendDatagramTo({data, text.size()}, ZENNO::IPAddress::loopbackV6(port),
                                     /*retry=*/true));
}

// From here on this process may no more than any user may.
void dropRights() {
    __user_cap_header_struct who{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2]{};
    ASSERT_EQ(syscall(SYS_capset, &who, none), 0);
}

TEST(DriverLog, HoldsEveryLineThatWasSentBeforeItEnded) {
    const velmora_test::Scratch scratch;
    const std::string path = scratch.path("driver.log");
    std::string error, expected;
    {
        DriverLog log;
        ASSERT_TRUE(log.open(path, error, 0)) << error;
        ASSERT_NE(log.port(), 0);
        for (int i = 0; i < 20; ++i) {
            const std::string line = "<134>1 a line " + std::to_string(i);
            send(log.port(), line);
            expected += line + '\n';
        }
        send(log.port(), std::string(4096, 'x'));
        expected += std::string(4096, 'x') + '\n';
    }
    EXPECT_EQ(contents(path), expected);
}

TEST(DriverLog, WhoseFileCannotBeWrittenSaysSo) {
    DriverLog log;
    std::string error;
    EXPECT_FALSE(log.open("/nowhere/at/all.log", error, 0));
    EXPECT_EQ(error, "/nowhere/at/all.log: the driver's log cannot be written.");
}

TEST(DriverLog, WhosePortIsTakenSaysSo) {
    const velmora_test::Scratch scratch;
    DriverLog first, second;
    std::string error;
    ASSERT_TRUE(first.open(scratch.path("1.log"), error, 0)) << error;
    EXPECT_FALSE(second.open(scratch.path("2.log"), error, first.port()));
    EXPECT_EQ(error, "The driver's log cannot be heard: port " + std::to_string(first.port()) +
                         " is taken, so end the other log viewer, or the player with "
                         "--driver-log, that holds it.");
}

TEST(DriverLog, SaysWhatElseKeepsItFromThePort) {
    VELMORA_IN_NAMESPACE(velmora_test::Wiring::bare, [](const velmora_test::Cable&) {
        const velmora_test::Scratch scratch;
        const auto words = [&](std::uint16_t port) {
            DriverLog log;
            std::string error;
            EXPECT_FALSE(log.open(scratch.path("driver.log"), error, port));
            return error;
        };
        for (const std::uint16_t port : {std::uint16_t{0}, velmora_log::logPort}) {
            EXPECT_EQ(words(port),
                      "The driver's log cannot be heard: this system gives no socket on ::1; see "
                      "that IPv6 is turned on.");
        }
        velmora_test::runIp("link set lo up");
        dropRights();
        EXPECT_EQ(words(80),
                  "The driver's log cannot be heard: the system keeps port 80 from this user; "
                  "those from 1024 on are for everybody, unless a program has reserved them.");
        DriverLog log;
        std::string error;
        EXPECT_TRUE(log.open(scratch.path("driver.log"), error)) << error;
    });
}

TEST(DriverLog, ThatWasNeverOpenedGoesQuietly) {
    DriverLog log;
    EXPECT_EQ(log.port(), 0);
}

}  // namespace
