// A network of a test's own: two ends of a cable in a namespace that ends with the test. Nothing of
// what is sent in it leaves this machine.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace velmora_test {

// The two ends are up, with link-local addresses that can be used at once, as is ::1.
struct Cable {
    std::uint32_t loopback = 0, near = 0, far = 0;  // interface numbers
};

enum class Wiring {
    bare,  // loopback alone, and down: no address anywhere
    cable,
};

// Whether this is a system that knows namespaces at all: a native build.
extern const bool namespacesExist;

// Runs `body` in a child process inside a fresh namespace. Its expectations print as usual and fail
// the caller's test. Gives the reason why there can be no namespace here, or an empty text.
std::string inNamespace(Wiring wiring, const std::function<void(const Cable&)>& body);

// An `ip` command of iproute2, inside a body; a failure fails the test.
void runIp(const std::string& arguments);

}  // namespace velmora_test

// A test's whole body in a namespace; skipped, with the reason, where there can be none. Variadic,
// since the body is a lambda and has commas of its own.
#define VELMORA_IN_NAMESPACE(wiring, ...)                                          \
    do {                                                                           \
        const std::string reason = velmora_test::inNamespace(wiring, __VA_ARGS__); \
        if (!reason.empty()) GTEST_SKIP() << reason;                               \
    } while (false)
