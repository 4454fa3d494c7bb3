#include "apps/log/LogPort.h"

#include "platform/Net.h"

namespace velmora_log {
namespace {

// A socket that does not share tells whether somebody else is there.
bool isFree(const ZENNO::IPAddress& address) {
    namespace net = ZENNO::platform;
    const std::uint64_t handle = net::openSocket(net::familyV6, net::typeDatagram);
    if (handle == net::noSocket) return false;
    const net::Endpoint local{address.address, address.port, address.scope};
    const bool free = net::bindSocket(handle, net::familyV6, local) == 0;
    net::closeSocket(handle);
    return free;
}

}  // namespace

bool openLogPort(ZENNO::Link& link, ZENNO::IPAddress& address) {
    return link.open(ZENNO::SocketKind::udpV6) && isFree(address) && link.bindV6(address);
}

}  // namespace velmora_log
