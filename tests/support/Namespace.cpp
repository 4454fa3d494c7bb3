#include "tests/support/Namespace.h"

#include <gtest/gtest.h>

#if __has_include(<sys/wait.h>) && __has_include(<sched.h>)

#include <net/if.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

namespace velmora_test {

const bool namespacesExist = true;

namespace {

constexpr int exitPassed = 0, exitFailed = 1, exitNoNamespace = 77;

bool writeText(const char* path, const std::string& text) {
    std::FILE* file = std::fopen(path, "w");
    if (file == nullptr) return false;
    const bool written = std::fputs(text.c_str(), file) >= 0;
    return std::fclose(file) == 0 && written;
}

// Root may have one for the asking; anybody else needs a user namespace around it.
bool enter() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0) return unshare(CLONE_NEWNET) == 0;
    return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
           writeText("/proc/self/setgroups", "deny") &&
           writeText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           writeText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// Without it a link-local address is tentative for two seconds.
bool skipAddressDetection() {
    return writeText("/proc/sys/net/ipv6/conf/all/accept_dad", "0") &&
           writeText("/proc/sys/net/ipv6/conf/default/accept_dad", "0");
}

bool ip(const std::string& arguments) {
    return std::system(("PATH=$PATH:/usr/sbin:/sbin ip " + arguments).c_str()) == 0;
}

// Link-local addresses come by themselves, a moment after both ends have seen each other, and can
// be sent from a moment later.
bool hasAddresses() {
    constexpr unsigned tentative = 0x40;
    std::ifstream table("/proc/net/if_inet6");
    int found = 0;
    std::string address, index, length, scope, name;
    unsigned flags = 0;
    while (table >> address >> index >> length >> scope >> std::hex >> flags >> name) {
        const bool ours = name == "near" || name == "far";
        found += ours && address.starts_with("fe80") && (flags & tentative) == 0 ? 1 : 0;
    }
    return found == 2;
}

bool settled() {
    for (int tries = 0; tries < 500; ++tries) {
        if (hasAddresses()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

bool wire(Cable& cable) {
    const bool up = skipAddressDetection() && ip("link set lo up") &&
                    ip("link add near type veth peer name far") && ip("link set near up") &&
                    ip("link set far up");
    cable = {if_nametoindex("lo"), if_nametoindex("near"), if_nametoindex("far")};
    return up && settled();
}

[[noreturn]] void runChild(int report, Wiring wiring,
                           const std::function<void(const Cable&)>& body) {
    const auto giveUp = [report](const std::string& reason) {
        const std::string text = reason + ": " + std::strerror(errno);
        [[maybe_unused]] const ssize_t written = write(report, text.data(), text.size());
        _exit(exitNoNamespace);
    };
    Cable cable;
    if (!enter()) giveUp("no rights to make a network namespace");
    if (wiring == Wiring::cable && !wire(cable)) giveUp("no veth pair to be had");
    body(cable);
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? exitFailed : exitPassed);
}

}  // namespace

std::string inNamespace(Wiring wiring, const std::function<void(const Cable&)>& body) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) runChild(ends[1], wiring, body);
    close(ends[1]);
    std::string reason;
    char buffer[256];
    for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        reason.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) return "no child process";
    if (WIFEXITED(status) && WEXITSTATUS(status) == exitNoNamespace) return reason;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == exitPassed)
        << "failed inside the namespace, status " << status;
    return {};
}

void runIp(const std::string& arguments) {
    EXPECT_TRUE(ip(arguments)) << "ip " << arguments;
}

}  // namespace velmora_test

#else

namespace velmora_test {

const bool namespacesExist = false;

std::string inNamespace(Wiring, const std::function<void(const Cable&)>&) {
    return "this system has no network namespaces";
}

void runIp(const std::string&) {}

}  // namespace velmora_test

#endif
