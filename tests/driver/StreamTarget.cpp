#include "tests/driver/StreamTarget.h"

#include <algorithm>

#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace velmora_test {

namespace wire = VELMORA::wire;
using VELMORA::SinkConfig;
using ZENNO::Bytes;
using ZENNO::IPAddress;

StreamTarget::StreamTarget(const IPAddress& address) : address_(address) {}

IPAddress StreamTarget::at(std::uint16_t port) const {
    IPAddress address = address_;
    address.setPortNumber(port);
    return address;
}

std::vector<IPAddress> StreamTarget::addresses() const {
    return {at(wire::ControlPort), at(sinkPort), at(streamPort)};
}

std::vector<Bytes> StreamTarget::answer(const Bytes& datagram) {
    const std::lock_guard lock(mutex_);
    const auto packet = wire::readPacket(datagram);
    if (!packet) return {};
    const std::uint16_t id = packet->id();

    if (id == wire::STREAM_DATA::id) {
        const auto payload = packet->payload();
        if (keepsAudio) audio_.insert(audio_.end(), payload.begin(), payload.end());
        if ((packet->flags() & wire::STREAM_DATA::asksInfo) == 0) return {};
        wire::INFO_ANS info;
        info.feedback = 0x2000;  // all is well
        return {wire::write(info)};
    }
    ids_.push_back(id);
    if (silentTo.count(id) != 0) return {};

    switch (id) {
        case wire::FIND_REQ::id: {
            wire::FIND_ANS found;
            found.productID = product;
            found.targetName = name;
            return {wire::write(found)};
        }
        case wire::HELLO_REQ::id:
            return {wire::write(wire::HELLO_ANS{})};
        case wire::SINK_REQ::id: {
            wire::SINK_ANS sink;
            if (packet->arg16(8) == 0) {
                sink.count = 1;
            } else if (packet->arg16(8) == 1) {
                sink.port = sinkPort;
                sink.version = sinkVersion;
                sink.sinkName = sinkName;
            }
            return {wire::write(sink)};
        }
        case wire::CONFIG_REQ::id:
            return {wire::write(wire::CONFIG_ANS{})};
        case wire::SUPPORT_REQ::id: {
            wire::SUPPORT_ANS support;
            switch (packet->arg64()) {
                case 0:
                    support.mask = pcm & SinkConfig::pcmMask;
                    support.mask |= (dsdLsb | dsdMsb) & SinkConfig::dsdMask;
                    if (dsdLsb != 0) support.mask |= SinkConfig::dsdLsb;
                    if (dsdMsb != 0) support.mask |= SinkConfig::dsdMsb;
                    break;
                case SinkConfig::dsdLsb:
                    support.mask = dsdLsb;
                    break;
                case SinkConfig::dsdMsb:
                    support.mask = dsdMsb;
                    break;
                default:
                    support.mask = pcm;
                    break;
            }
            return {wire::write(support)};
        }
        case wire::PROFILE_REQ::id: {
            wire::PROFILE_ANS profile;
            profile.minCycle10 = minCycle10;
            profile.maxCycle10 = maxCycle10;
            profile.profileFlags = profileFlags;
            return {wire::write(profile)};
        }
        case wire::LATENCY_REQ::id: {
            wire::LATENCY_ANS latency;
            wantedLatency_ = std::max(wantedLatency_, packet->arg16(8));
            latency.latency = packet->arg16(8) != 0 ? packet->arg16(8) : 500;
            latency.hwLatency = 10;
            return {wire::write(latency)};
        }
        case wire::DATASIZE_REQ::id: {
            wire::DATASIZE_ANS size;
            size.mtu = mtu;
            size.maxBurst = maxBurst;
            return {wire::write(size)};
        }
        case wire::CONNECTPRE_REQ::id:
            return {wire::write(wire::CONNECTPRE_ANS{})};
        case wire::CLIENT_REQ::id:
            return {wire::write(wire::CLIENT_ANS{})};
        case wire::CONNECT_REQ::id: {
            connectedFormat_ = packet->arg64();
            wire::CONNECT_ANS connect;
            connect.streamPort = streamPort;
            return {wire::write(connect)};
        }
        case wire::DSICONNECT_REQ::id:
            return {wire::write(wire::DSICONNECT_ANS{})};
        default:
            return {};
    }
}

std::vector<std::uint16_t> StreamTarget::ids() const {
    const std::lock_guard lock(mutex_);
    return ids_;
}

int StreamTarget::count(std::uint16_t id) const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(std::count(ids_.begin(), ids_.end(), id));
}

Bytes StreamTarget::audio() const {
    const std::lock_guard lock(mutex_);
    return audio_;
}

std::uint64_t StreamTarget::connectedFormat() const {
    const std::lock_guard lock(mutex_);
    return connectedFormat_;
}

std::uint16_t StreamTarget::wantedLatency() const {
    const std::lock_guard lock(mutex_);
    return wantedLatency_;
}

}  // namespace velmora_test
