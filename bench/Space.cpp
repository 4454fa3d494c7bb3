#include "bench/Space.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace velmora_bench {

void enterSpace(const std::string& name) {
    const int space = ::open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
    const bool entered = space >= 0 && ::setns(space, CLONE_NEWNET) == 0;
    if (space >= 0) ::close(space);
    if (!entered) throw std::runtime_error("the network namespace " + name + " cannot be entered");
}

sockaddr_in6 linkLocalAddress() {
    ifaddrs* list = nullptr;
    sockaddr_in6 found{};
    if (::getifaddrs(&list) == 0) {
        for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET6) continue;
            sockaddr_in6 address{};
            std::memcpy(&address, entry->ifa_addr, sizeof address);
            if (!IN6_IS_ADDR_LINKLOCAL(&address.sin6_addr)) continue;
            found = address;
            break;
        }
        ::freeifaddrs(list);
    }
    if (found.sin6_family == 0)
        throw std::runtime_error("this namespace has no link-local address");
    return found;
}

}  // namespace velmora_bench
