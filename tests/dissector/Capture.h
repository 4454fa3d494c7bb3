// A capture file of a test's own: datagrams with their times, as IPv6 packets in a pcap file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/BufferCS.h"
#include "base/IPAddress.h"

namespace velmora_test {

using ZENNO::Bytes;
using ZENNO::IPAddress;

class Capture {
public:
    // `micros` since the capture's begin; without one a millisecond behind the last.
    void add(const IPAddress& from, const IPAddress& to, const Bytes& datagram);
    void add(const IPAddress& from, const IPAddress& to, const Bytes& datagram,
             std::uint64_t micros);
    // Of the next datagrams only so many bytes behind the UDP header were kept.
    void keepOnly(std::size_t bytes) { kept_ = bytes; }
    // A router's complaint about this datagram, with the datagram in it.
    void addUnreachable(const IPAddress& from, const IPAddress& to, const Bytes& datagram);

    std::size_t count() const noexcept { return packets_.size(); }
    void write(const std::string& path) const;

private:
    struct Packet {
        std::uint64_t micros;
        std::size_t length;  // as it was sent
        Bytes bytes;         // as it was kept
    };
    std::vector<Packet> packets_;
    std::size_t kept_ = SIZE_MAX;
};

}  // namespace velmora_test
