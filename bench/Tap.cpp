#include "bench/Tap.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "bench/Space.h"
#include "bench/Stamp.h"
#include "wire/StreamMessage.h"

namespace velmora_bench {
namespace {

namespace wire = VELMORA::wire;

constexpr std::size_t ipBytes = 40, udpBytes = sizeof(udphdr), nextHeaderAt = 6;
constexpr int patience = 5000;  // ms

bool isHostsAudio(std::span<const std::uint8_t> frame) {
    if (frame.size() < ipBytes + udpBytes || frame[nextHeaderAt] != IPPROTO_UDP) return false;
    const auto packet = wire::readPacket(frame.subspan(ipBytes + udpBytes));
    return packet && packet->id() == wire::STREAM_DATA::id &&
           std::ranges::any_of(packet->payload(), [](std::uint8_t byte) { return byte != 0; });
}

void watch(const std::string& space, int order, int result) {
    enterSpace(space);
    const int socket = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IPV6));
    if (socket < 0) throw std::runtime_error("no look at the wire");
    stampArrivals(socket);
    tell(result, true);
    std::array<std::uint8_t, 4096> frame{};
    std::array<pollfd, 2> waited = {{{socket, POLLIN, 0}, {order, POLLIN, 0}}};
    const std::int64_t end = clockNanos(CLOCK_MONOTONIC) + patience * std::int64_t{1'000'000};
    while (::poll(waited.data(), waited.size(), patience) > 0 && waited[1].revents == 0 &&
           clockNanos(CLOCK_MONOTONIC) < end) {
        sockaddr_in6 from{};
        std::int64_t stamp = 0;
        const ssize_t n = receiveStamped(socket, frame, from, stamp);
        if (n <= 0 || !isHostsAudio({frame.data(), static_cast<std::size_t>(n)})) continue;
        tell(result, stamp);
        return;
    }
    tell(result, std::int64_t{0});
}

}  // namespace

Tap::Tap(const std::string& space)
    : child_([&](int order, int result) { watch(space, order, result); }) {
    child_.hear<bool>();
}

std::int64_t Tap::firstAudioNanos() {
    const auto stamp = child_.hear<std::int64_t>();
    if (stamp == 0) throw std::runtime_error("no audio of the host's has come");
    return stamp;
}

}  // namespace velmora_bench
