// A target that can be found, negotiated with and streamed to: what it answers to each datagram,
// without a network of its own, so that both networks in memory can carry it. It keeps what it saw.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "base/BufferCS.h"
#include "base/IPAddress.h"
#include "driver/Product.h"
#include "driver/SinkConfig.h"

namespace velmora_test {

class StreamTarget {
public:
    static constexpr std::uint16_t sinkPort = 5000, streamPort = 5001;

    // Every rate of the families 44100 and 48000, and the channel codes of `channels`.
    static constexpr std::uint64_t allRates = 0x0000'fffe'0000'0000;
    static constexpr std::uint64_t twoChannels = 0x2, everyChannels = 0x1f;

    explicit StreamTarget(const ZENNO::IPAddress& address);  // scope included; the port is not

    // ---- what it is; set before the driver asks ----
    std::uint64_t product = ProductID;
    std::string name = "T";
    std::string sinkName = "S";
    std::uint16_t sinkVersion = 1;
    std::uint64_t pcm = allRates | twoChannels | VELMORA::SinkConfig::pcm32;
    std::uint64_t dsdLsb = 0, dsdMsb = 0;
    std::uint16_t minCycle10 = 0, maxCycle10 = 0, profileFlags = 0;
    std::uint16_t mtu = 1500, maxBurst = 15000;
    std::set<std::uint16_t> silentTo;  // ids of requests
    bool keepsAudio = true;            // for audio(); a long stream is a lot of it

    ZENNO::IPAddress at(std::uint16_t port) const;
    std::vector<ZENNO::IPAddress> addresses() const;  // control, sink and stream port

    // The answers to one datagram. One thread at a time, or any where a lock is held around it.
    std::vector<ZENNO::Bytes> answer(const ZENNO::Bytes& datagram);

    // ---- what it saw; any thread ----
    std::vector<std::uint16_t> ids() const;  // of requests, without STREAM_DATA
    int count(std::uint16_t id) const;
    ZENNO::Bytes audio() const;  // the payloads of STREAM_DATA one behind the other
    std::uint64_t connectedFormat() const;
    std::uint16_t wantedLatency() const;

private:
    mutable std::mutex mutex_;
    ZENNO::IPAddress address_;
    std::vector<std::uint16_t> ids_;
    ZENNO::Bytes audio_;
    std::uint64_t connectedFormat_ = 0;
    std::uint16_t wantedLatency_ = 0;
};

}  // namespace velmora_test
