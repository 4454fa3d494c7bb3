// What a stream worker sends, held against what it was given: the audio goes out once, whole and in
// order, whatever the target says; what is sent again is what was sent; and no word of the target's
// makes it send more or faster than twice its plan.
#pragma once

#include <map>
#include <vector>

#include "fuzz/World.h"
#include "sync/Sync.h"

namespace velmora_fuzz {

// How the worker's thread behaves. The modes that look at the clock again and again take long, in a
// world where each look has to move it: they are asked for beside the rest.
inline std::uint32_t threadModeFrom(Input& input) {
    constexpr std::uint32_t all = 0xfff, polling = 0x804, pollsAllowed = 0x8000;
    const std::uint32_t word = input.word();
    return word & ((word & pollsAllowed) != 0 ? all : all & ~polling);
}
constexpr std::uint32_t microsPerLook = 100;

class Flow {
public:
    explicit Flow(VELMORA::Sync& sync, std::size_t blockBytes = 256)
        : sync_(sync), block_(blockBytes) {}

    // The session's getNewStream: the next block; none when the session is to end.
    bool lend(VELMORA::StreamRef& out);
    // All that went over the network, when the worker has ended.
    void check(const std::vector<Datagram>& sent);

private:
    struct Packet {
        std::uint64_t time = 0;
        std::uint16_t flags = 0, sequence = 0;
        Bytes payload;
    };
    static Packet packetOf(const Datagram& datagram);
    void onNew(const Packet& packet);
    void onOld(const Packet& packet) const;
    void takeAudio(const Bytes& payload);
    void checkWhole() const;
    void checkRate(const std::vector<Packet>& packets) const;

    VELMORA::Sync& sync_;
    Bytes block_;
    std::uint64_t lent_ = 0, passed_ = 0;  // bytes given to the worker, and seen behind it
    std::vector<Bytes> sent_;              // payloads, by the number of the packet
};

}  // namespace velmora_fuzz
