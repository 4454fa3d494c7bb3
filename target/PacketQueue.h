// The jitter buffer: audio packets in the order of their sequence, with a hole where one is
// missing.
//
// Sequence numbers have 16 bits on the wire and are carried on here without end, from the first
// packet of a stream, which has number 0. What is taken from the front is gone: a hole that is
// reached is lost and silence of its neighbour's length takes its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>

#include "wire/Packet.h"

namespace velmora_target {

class PacketQueue {
public:
    enum class Put {
        newest,     // behind all others; packets skipped on the way are holes now
        filled,     // a hole that nobody had asked about yet: it came out of order
        recovered,  // a hole that had been asked about
        duplicate,  // it is here, or was played
        late,       // its turn is over, silence was played for it
        foreign,    // so far ahead that it is none of this stream: nobody has kept it
    };

    explicit PacketQueue(std::uint8_t silence) : silence_(silence) {}

    // More are not held, whether they carry audio or not.
    static constexpr std::size_t mostPackets = 131'072, mostHoles = 32'768;

    Put put(std::uint16_t sequence, VELMORA::wire::ConstBytes audio, std::uint64_t now);
    // What would be missing in front of such a new packet: bytes, each hole counting as it.
    std::uint64_t missingBytes(std::uint16_t sequence, std::size_t bytes) const noexcept;
    // Moves `bytes`, or all there is, from the front to the end of `out`.
    std::size_t take(std::size_t bytes, ZENNO::Bytes& out);

    std::size_t bytes() const noexcept;  // held, a hole counting as its neighbours
    bool isEmpty() const noexcept { return slots_.empty(); }
    std::uint64_t lost() const noexcept { return lost_; }
    std::uint16_t nextSequence() const noexcept { return static_cast<std::uint16_t>(newest_ + 1); }

    struct Hole {
        std::uint64_t since = 0;  // the arrival before the hole: it is at least so old
        bool asked = false;
    };
    // By packet number; the low 16 bits are the sequence.
    const std::map<std::int64_t, Hole>& holes() const noexcept { return holes_; }
    void markAsked(std::int64_t from);  // every hole from there on

private:
    std::int64_t numberOf(std::uint16_t sequence) const noexcept;

    struct Slot {
        bool present = false;
        ZENNO::Bytes audio;
    };

    std::uint8_t silence_;
    std::deque<Slot> slots_;     // number front_ to newest_
    std::int64_t front_ = 0;     // first that is not played out
    std::int64_t newest_ = -1;   // highest ever seen
    std::size_t frontUsed_ = 0;  // bytes of the first slot that are played
    std::size_t present_ = 0;    // bytes in present slots
    std::size_t neighbour_ = 0;  // length of the newest packet with audio
    std::uint64_t lastArrival_ = 0;
    std::uint64_t lost_ = 0;
    std::map<std::int64_t, Hole> holes_;
    std::set<std::int64_t> playedSilent_;  // lost ones that may yet come, late
};

}  // namespace velmora_target
