// Who speaks in these captures, and short ways to let them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/dissector/Tshark.h"
#include "wire/DiscoveryMessage.h"

namespace velmora_test {

namespace wire = VELMORA::wire;

constexpr std::uint16_t talkControlPort = wire::ControlPort, talkSinkPort = 20001,
                        streamPort = 20002, hostPort = 40000;

inline IPAddress hostAt(std::uint16_t port = hostPort) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x11}, port);
}
inline IPAddress targetAt(std::uint16_t port = talkControlPort) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x22}, port);
}
inline IPAddress otherTargetAt(std::uint16_t port = talkControlPort) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0x33}, port);
}
inline IPAddress everybody(std::uint16_t port = talkControlPort) {
    return IPAddress::allNodes(port, 0);
}

using Words = std::vector<std::uint16_t>;
inline Words words(std::initializer_list<unsigned> list) {
    Words out;
    for (const unsigned word : list) out.push_back(static_cast<std::uint16_t>(word));
    return out;
}

inline Bytes refused(Bytes answer) {
    answer[6] = static_cast<std::uint8_t>(answer[6] & ~1);
    return answer;
}

// A capture that a host and a target fill: `ask` goes there, `answer` comes back.
struct Talk {
    IPAddress host = hostAt(), target = targetAt();
    Capture capture;
    std::uint64_t now = 0;  // µs

    template <class M>
    void ask(const M& m) {
        say(host, target, write(m));
    }
    template <class M>
    void answer(const M& m) {
        say(target, host, write(m));
    }
    void say(const IPAddress& from, const IPAddress& to, const Bytes& datagram) {
        capture.add(from, to, datagram, now);
        now += 1000;
    }
    // An audio packet of `bytes` bytes; `surplus` as one that is sent again.
    void audio(std::uint16_t sequence, std::uint16_t flags = 0x40, std::size_t bytes = 8,
               std::size_t surplus = 0) {
        Bytes data = wire::makePacket(wire::STREAM_DATA::id, flags, {sequence}, Bytes(bytes, 0x55));
        data.resize(data.size() + surplus);
        say(host, target, data);
    }
    void feedback(std::uint16_t word, std::uint16_t fill = 0, std::uint16_t wanted = 0) {
        answer(wire::INFO_ANS{.feedback = word, .fill = fill, .fillTarget = wanted});
    }
    void askAgain(std::uint16_t from, std::uint16_t last) {
        answer(wire::INFO_ANS{.isResend = true, .fill = from, .fillTarget = last});
    }
    // The stream is opened, and from here on the two speak at the stream's port.
    void connect(VELMORA::SinkConfig format = VELMORA::SinkConfig(0x0000'000c'0000'0202),
                 std::uint16_t port = streamPort) {
        target.setPortNumber(talkSinkPort);
        ask(wire::CONNECT_REQ{format});
        answer(wire::CONNECT_ANS{.streamPort = port});
        target.setPortNumber(port);
    }
    std::vector<Shown> dissect() const { return velmora_test::dissect(capture); }
};

}  // namespace velmora_test
