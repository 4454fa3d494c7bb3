// The network in memory, with the fuzzer at its other end: whoever the host asks, answers by the
// script that the fuzzer's bytes are.
//
// One saying of the script:
//
//   how  u8   bits 0..2 form, 3..4 sender, 5..6 delay, 7: another saying follows this one
//   sender    0 whoever was asked · 1 another port, u16 · 2 another address, its last byte, u8 ·
//             3 another interface, u8
//   delay     0 at once · 1 u16 µs · 2 u16 x 16 µs · 3 u16 ms
//   form      0 silence
//             1 an accepted answer: arg, 8 bytes; payload, its length, u8, in front
//             2 the same, the first word of arg being the request's: arg, 6 bytes; payload
//             3 an answer: flags, u16; arg, 8 bytes; payload
//             4 a message: id, u16; flags, u16; arg, 8 bytes; payload
//             5 a datagram: its length, u8; the bytes
//             6 the request's own bytes
//             7 an accepted answer: arg, 8 bytes; payload of one byte, u8, many times, u16
//
// Where the bytes have run out all are silent.
#pragma once

#include <cstdint>
#include <functional>
#include <set>

#include "base/LogLine.h"
#include "fuzz/Fuzz.h"
#include "fuzz/Input.h"
#include "tests/support/FakeNetwork.h"

namespace velmora_fuzz {

using velmora_test::Datagram;
using velmora_test::FakeNetwork;
using ZENNO::Bytes;
using ZENNO::IPAddress;

constexpr std::uint64_t second = 1'000'000;  // µs

// fe80::<last>, on interface 3 unless told.
inline IPAddress linkLocal(std::uint16_t last, std::uint16_t port, std::uint32_t scope = 3) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last}, port, scope);
}

// For as long as it lives every log line is built, if it is `on`, looked at, and thrown away.
class EveryLine final : public ZENNO::LogSink {
public:
    explicit EveryLine(bool on);
    ~EveryLine() override;
    void deliver(ZENNO::LogRecord& record) noexcept override;

private:
    std::int32_t levelBefore_;
    ZENNO::LogSink* sinkBefore_;
};

class World final : private velmora_test::Peer {
public:
    explicit World(Input& script);

    // Simulated time that gets so far ends the process: a loop that does not end. Takes the place
    // of an earlier limit.
    void mustEndIn(std::uint64_t micros);
    std::uint64_t now() const { return network.time.time(); }  // µs
    std::size_t sent() const { return sent_; }                 // datagrams of the host's
    std::size_t said() const { return said_; }                 // of the fuzzer's, arrived or not
    const Datagram& lastSent() const { return lastSent_; }

    // What a saying says in answer to `request`; empty for silence. Spends what follows the sender
    // and the delay.
    Bytes speech(unsigned form, const Bytes& request);
    // One saying, towards the sender of `request`. False when no other is to follow.
    bool say(const Datagram& request);

    FakeNetwork network;
    std::function<void(const Datagram&)> onSent;  // of the host's datagrams, as they leave

private:
    void onDatagram(FakeNetwork& network, const Datagram& request) override;
    void onLeaving(const Datagram& datagram);

    Input& script_;
    std::set<IPAddress> attached_;
    std::size_t sent_ = 0, said_ = 0;
    Datagram lastSent_, askedAll_;
    std::uint64_t limit_ = ~0ull;
};

// A datagram as it lies on the wire, put together without the code under test.
Bytes message(std::uint16_t id, std::uint16_t flags, const Bytes& arg, const Bytes& payload);

}  // namespace velmora_fuzz
