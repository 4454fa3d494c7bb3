#include "apps/log/LogPort.h"

#include "platform/Net.h"

namespace velmora_log {
namespace {

PortAnswer refusalOf(std::int32_t error) {
    if (error == ZENNO::errorInUse) return PortAnswer::taken;
    return error == ZENNO::errorNoRight ? PortAnswer::noRight : PortAnswer::noSocket;
}

// A socket that does not share tells whether somebody else is there.
PortAnswer ask(const ZENNO::IPAddress& address) {
    namespace net = ZENNO::platform;
    const std::uint64_t handle = net::openSocket(net::familyV6, net::typeDatagram);
    if (handle == net::noSocket) return PortAnswer::noSocket;
    const net::Endpoint local{address.address, address.port, address.scope};
    const std::int32_t error = net::bindSocket(handle, net::familyV6, local);
    net::closeSocket(handle);
    return error == 0 ? PortAnswer::open : refusalOf(error);
}

}  // namespace

PortAnswer openLogPort(ZENNO::Link& link, ZENNO::IPAddress& address) {
    if (!link.open(ZENNO::SocketKind::udpV6)) return PortAnswer::noSocket;
    const PortAnswer answer = ask(address);
    if (answer != PortAnswer::open || link.bindV6(address)) return answer;
    return refusalOf(link.lastError());
}

std::string whyNotHeard(PortAnswer answer, std::uint16_t port) {
    const std::string begin = "The driver's log cannot be heard: ", name = std::to_string(port);
    switch (answer) {
        case PortAnswer::open:
            return {};
        case PortAnswer::noSocket:
            return begin + "this system gives no socket on ::1; see that IPv6 is turned on.";
        case PortAnswer::noRight:
            return begin + "the system keeps port " + name +
                   " from this user; those from 1024 on are for everybody, unless a program has "
                   "reserved them.";
        case PortAnswer::taken:
            break;
    }
    return begin + "port " + name +
           " is taken, so end the other log viewer, or the player with --driver-log, that holds "
           "it.";
}

}  // namespace velmora_log
