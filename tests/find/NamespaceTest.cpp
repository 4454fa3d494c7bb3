// Discovery over real sockets: two network namespaces of the test's own with a cable between them,
// the host in one, a target in the other. Nothing leaves them, and they go when the test ends.
#if __has_include(<sched.h>) && __has_include(<sys/wait.h>) && __has_include(<net/if.h>)

#include <net/if.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

constexpr int exitSkipped = 77;

struct CannotRun {
    std::string reason;
};

void shell(const std::string& command) {
    if (std::system((command + " 2>/dev/null").c_str()) != 0) throw CannotRun{command};
}

// Addresses are usable at once: nobody else is on the cable to have them already.
void enterNamespace() {
    if (unshare(CLONE_NEWNET) != 0) {
        throw CannotRun{std::string("a network namespace: ") + std::strerror(errno)};
    }
    for (const char* which : {"all", "default"}) {
        std::ofstream file(std::string("/proc/sys/net/ipv6/conf/") + which + "/accept_dad");
        file << 0 << std::flush;
        if (!file) throw CannotRun{"accept_dad cannot be set"};
    }
}

// fe80:: of an interface, waited for a while: it comes with the carrier.
IPAddress linkLocalOf(const char* interface) {
    const std::uint32_t scope = if_nametoindex(interface);
    for (int tries = 0; tries < 200; ++tries) {
        ZENNO::LocalInterfaceMap all;
        ZENNO::systemEnvironment().localAddressesV6(all);
        for (const auto& [address, names] : all) {
            if (address.isLinkLocal() && address.scope == scope) return address;
        }
        ZENNO::systemEnvironment().clock().sleep(20'000);
    }
    throw CannotRun{std::string("no link-local address on ") + interface};
}

Bytes replyTo(const wire::PacketView& request) {
    switch (request.id()) {
        case wire::FIND_REQ::id:
            return write(wire::FIND_ANS{.productID = 77, .targetName = "cellar"});
        case wire::HELLO_REQ::id:
            return write(wire::HELLO_ANS{});
        case wire::CONFIG_REQ::id:
            return write(wire::CONFIG_ANS{.configText = "at [myaddress]"});
        case wire::SINK_REQ::id:
            return request.arg16(8) == 0
                       ? write(wire::SINK_ANS{.count = 1})
                       : write(wire::SINK_ANS{.port = 6000, .version = 1, .sinkName = "barrel"});
        default:
            return {};
    }
}

// The target, on its own thread: a namespace belongs to a thread.
class RealTarget {
public:
    RealTarget() {
        thread_ = std::thread([this] {
            try {
                enterNamespace();
                entered_.set_value(static_cast<int>(syscall(SYS_gettid)));
            } catch (...) {
                entered_.set_exception(std::current_exception());
                return;
            }
            try {
                plugged_.get_future().get();
                shell("ip link set velmora1 up");
                const IPAddress address = linkLocalOf("velmora1");
                auto link = ZENNO::systemEnvironment().makeLink();
                IPAddress any;
                any.setPortNumber(19642);
                if (!link->open(ZENNO::SocketKind::udpV6) || !link->bindV6(any) ||
                    !link->joinV6(IPAddress::allNodes(19642, address.scope))) {
                    throw CannotRun{"the target's socket"};
                }
                ready_.set_value(address);
                answer(*link);
            } catch (...) {
                ready_.set_exception(std::current_exception());
            }
        });
    }
    ~RealTarget() {
        stop_ = true;
        if (!isPlugged_) plugged_.set_exception(std::make_exception_ptr(CannotRun{"no cable"}));
        thread_.join();
    }

    int threadId() { return entered_.get_future().get(); }
    IPAddress start() {
        isPlugged_ = true;
        plugged_.set_value();
        return ready_.get_future().get();
    }

private:
    void answer(ZENNO::Link& link) {
        while (!stop_) {
            if (link.waitReadable(20'000) != ZENNO::waitReady) continue;
            Bytes data;
            IPAddress from;
            if (!link.receiveFrom(data, from)) continue;
            const auto request = wire::readPacket(data);
            if (!request) continue;
            const Bytes reply = replyTo(*request);
            if (!reply.empty()) link.sendDatagramTo(reply, from, /*retry=*/true);
        }
    }

    std::promise<int> entered_;
    std::promise<void> plugged_;
    std::promise<IPAddress> ready_;
    std::atomic<bool> stop_{false};  // set by the test, read by the thread
    bool isPlugged_ = false;
    std::thread thread_;
};

// `what` in a child process, with its namespaces; its failures are those of the test.
void onACable(const std::function<void(const IPAddress& target)>& what) {
    int report[2];
    ASSERT_EQ(pipe(report), 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(30);  // whatever hangs ends
        int code = 1;
        try {
            enterNamespace();
            RealTarget target;
            shell("ip link add velmora0 type veth peer name velmora1 netns " +
                  std::to_string(target.threadId()));
            shell("ip link set velmora0 up");
            const IPAddress address = target.start();
            linkLocalOf("velmora0");
            what(address);
            code = testing::Test::HasFailure() ? 1 : 0;
        } catch (const CannotRun& cannot) {
            code = exitSkipped;
            if (::write(report[1], cannot.reason.data(), cannot.reason.size()) < 0) code = 1;
        }
        std::fflush(nullptr);
        _exit(code);
    }
    close(report[1]);
    std::string reason;
    std::array<char, 256> buffer;
    for (ssize_t n; (n = read(report[0], buffer.data(), buffer.size())) > 0;) {
        reason.append(buffer.data(), static_cast<std::size_t>(n));
    }
    close(report[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) == exitSkipped) GTEST_SKIP() << "needs the right to: " << reason;
    EXPECT_EQ(WEXITSTATUS(status), 0) << "see the failures above";
}

TEST(OnACable, SearchFindsATargetByMulticast) {
    onACable([](const IPAddress& target) {
        Find find({}, ZENNO::systemEnvironment());
        ASSERT_TRUE(find.open());
        TargetMap out;
        ASSERT_TRUE(find.search(out));
        ASSERT_EQ(out.size(), 1u);
        const auto& [key, info] = *out.begin();
        EXPECT_EQ(key.address, target.address);
        EXPECT_EQ(key.portNumber(), 6000);
        EXPECT_EQ(key.scope, if_nametoindex("velmora0"));
        EXPECT_EQ(info.productID, 77u);
        EXPECT_EQ(info.targetName, "cellar");
        EXPECT_EQ(info.sinkName, "barrel");
        EXPECT_EQ(info.version, 1);
        EXPECT_EQ(info.configText, "at [" + target.text() + "]");
        EXPECT_EQ(info.findAddress.portNumber(), 19642);
    });
}

TEST(OnACable, InterfacesAreTakenByNumberAndByName) {
    onACable([](const IPAddress&) {
        const auto number = static_cast<std::uint16_t>(if_nametoindex("velmora0"));
        Find find({}, ZENNO::systemEnvironment());
        TargetMap out;
        ASSERT_TRUE(find.open(number));
        ASSERT_TRUE(find.search(out));
        EXPECT_EQ(out.size(), 1u);
        EXPECT_FALSE(find.open(static_cast<std::uint16_t>(number + 100)));
        EXPECT_TRUE(find.open(std::list<std::string>{"velmora0"}));
        EXPECT_FALSE(find.open(std::list<std::string>{"Velmora0"}));
    });
}

TEST(OnACable, ReFindNeedsNeitherPortNorInterface) {
    onACable([](const IPAddress& target) {
        Find find({}, ZENNO::systemEnvironment());
        ASSERT_TRUE(find.open());
        IPAddress address, out;
        address.address = target.address;
        TargetInfo info;
        ASSERT_TRUE(find.reFind(address, 1, out, info));
        EXPECT_EQ(out.address, target.address);
        EXPECT_EQ(out.portNumber(), 6000);
        EXPECT_EQ(info.targetName, "cellar");
    });
}

TEST(OnACable, TheWatchSocketOpensBesideTheOther) {
    onACable([](const IPAddress&) {
        Find find({}, ZENNO::systemEnvironment());
        ASSERT_TRUE(find.open());
        EXPECT_TRUE(find.openWatch());
        EXPECT_TRUE(find.openWatch()) << "and again";
    });
}

}  // namespace
}  // namespace velmora_test

#endif
