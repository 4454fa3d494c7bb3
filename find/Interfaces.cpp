// On which interfaces a Find works, and its sockets. A link-local address means nothing without its
// interface, so every send carries an interface number as the scope of its address.
#include <algorithm>

#include "base/LogLine.h"
#include "find/Find.h"
#include "wire/DiscoveryMessage.h"

namespace VELMORA {
namespace {

using ZENNO::IPAddress;
using ZENNO::LogLine;

constexpr std::uint32_t releaseNo = 112;  // of this library; targets' makers ask for it

bool openAndBind(ZENNO::Link& link, std::uint16_t port) {
    // The watch's socket fails in the same words.
    if (!link.open(ZENNO::SocketKind::udpV6)) {
        LogLine(3) << "error socket open Find::open";
        return false;
    }
    // Bound to ::, the socket is tied to no interface: the scope of each destination decides.
    IPAddress any;
    any.setPortNumber(port);
    if (!link.bindV6(any)) {
        LogLine(3) << "error socket bind Find::open";
        return false;
    }
    return true;
}

}  // namespace

// The machine's link-local addresses, and ::1 where the setting keeps it.
bool Find::localInterfaces(ZENNO::LocalInterfaceMap& out) {
    if (!environment_.localAddressesV6(out)) {
        LogLine(3) << "error getMyLocalAddresV6 Find::open";
        return false;
    }
    std::erase_if(out, [this](const auto& entry) {
        const IPAddress& address = entry.first;
        return !address.isLinkLocal() && !(setting_.loopback && address.isLoopback());
    });
    return true;
}

// An adapter with two link-local addresses stands in the list twice and is served twice.
std::list<IPAddress> Find::getInterfaces() {
    if (!interfaces_.empty()) return interfaces_;
    std::list<IPAddress> out;
    ZENNO::LocalInterfaceMap local;
    if (!localInterfaces(local)) return out;
    for (const auto& [address, names] : local) {
        if (address.scope != 0) out.push_back(address);
    }
    return out;
}

bool Find::open(const std::list<IPAddress>& interfaces) {
    LogLine(6) << "Velmora Find Library ReleaseNo : " << releaseNo;
    close();
    if (!interfaces.empty()) {
        interfaces_ = interfaces;
        interfaces_.remove_if([](const IPAddress& entry) { return entry.scope == 0; });
    }
    LogLine(6) << "Find::open " << static_cast<std::uint64_t>(interfaces_.size());
    return openAndBind(*socket_, 0);
}

bool Find::open() {
    return open(std::list<IPAddress>());
}

bool Find::open(const IPAddress& interface) {
    if (interface.isNone()) return open();
    return open(std::list<IPAddress>{interface});
}

bool Find::open(std::uint16_t interfaceNumber) {
    if (interfaceNumber == 0) return open();
    ZENNO::LocalInterfaceMap local;
    if (!localInterfaces(local)) return false;
    return std::any_of(local.begin(), local.end(), [&](const auto& entry) {
        return entry.first.scope == interfaceNumber && open(entry.first);
    });
}

bool Find::open(const std::list<std::string>& names) {
    ZENNO::LocalInterfaceMap local;
    if (!localInterfaces(local)) return false;
    std::list<IPAddress> chosen;
    for (const std::string& name : names) {
        if (name.empty()) continue;
        const auto entry = std::find_if(local.begin(), local.end(),
                                        [&](const auto& e) { return e.second.name == name; });
        if (entry == local.end()) {
            LogLine(3) << "not much interface " << name;
            return false;
        }
        chosen.push_back(entry->first);
        LogLine(6) << "much interface " << name << " " << entry->first.text()
                   << " ifno:" << entry->first.scope;
    }
    return open(chosen);
}

bool Find::openWatch() {
    if (!openAndBind(*notifySocket_, wire::NotifyPort)) return false;
    for (const IPAddress& interface : getInterfaces()) {
        if (interface.scope == 0) continue;
        if (!notifySocket_->joinV6(IPAddress::allNodes(wire::NotifyPort, interface.scope))) {
            // A failed join stores no error anywhere. The number told is an older one, and that of
            // the unicast socket: whoever reads these logs knows it so.
            LogLine(3) << "MULTI  member error:" << socket_->lastError();
            return false;
        }
    }
    table_.clear();
    running_.store(false, std::memory_order_release);
    return true;
}

void Find::close() {
    // The socket first: what the watch waits for on it then fails, and the watch ends.
    socket_->close();
    running_.store(false, std::memory_order_release);
    if (watch_.joinable()) watch_.join();
}

}  // namespace VELMORA
