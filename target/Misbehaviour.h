// What a target does wrong on purpose, at one step of its talk with a host: to try what the host
// makes of it.
//
// A step is the message that is answered. The answer is made as always, and spoiled on its way out;
// so everything else of the target stays as it is. A step STREAM_DATA stands for what the target
// says while a stream runs, LOG_REQ for the lines of its log as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <span>
#include <string_view>

#include "target/Mail.h"
#include "wire/Packet.h"

namespace velmora_target {

enum class Manner {
    silent,      // no answer
    dead,        // no answer to this message, and to nothing that comes after it
    refuse,      // the answer without its bit 0, and without what it would have told
    accept,      // the answer with its bit 0, whatever it says
    otherId,     // under the id of a message that does not exist
    cutShort,    // the last of its header is missing
    echo,        // the request comes back instead
    otherPort,   // from another port of the target
    zeros,       // all that it tells is 0
    ones,        // all that it tells is 65535
    garbage,     // all that it tells is drawn at random, text as well
    resendAll,   // STREAM_DATA: with every packet, a request for all that a host can still have
    resendMore,  // STREAM_DATA: with every packet, a request for more than any host can have
    contradict,  // STREAM_DATA: with every packet, feedback and phase against what was said last
};

struct MannerName {
    std::string_view name, meaning;
    Manner manner;
    bool ofStreamAlone;
};
std::span<const MannerName> manners() noexcept;
std::optional<MannerName> mannerNamed(std::string_view name) noexcept;

using Manners = std::map<std::uint16_t, Manner>;  // by the id of the step

class Misbehaviour {
public:
    Misbehaviour(const Manners& manners, std::uint32_t seed) : manners_(manners), random_(seed) {}

    // Everything that goes out from `first` on. `request` is what came, or null where only time
    // passed; `otherPort` is one that the target has besides the one that was asked.
    void spoil(const VELMORA::wire::PacketView* request, std::uint16_t otherPort, Mail& out,
               std::size_t first);
    // Audio of the stream that runs: adds what a hostile target says to it.
    void onAudio(const Arrival& arrival, const VELMORA::wire::PacketView& packet, Mail& out);

    // Once the step has come at which the target dies, it hears nothing either.
    bool isDead() const noexcept { return dead_; }
    // Messages that went out otherwise than they would have, or not at all, or besides. Once the
    // target is dead none is counted any more.
    std::uint64_t count() const noexcept { return count_; }

private:
    std::optional<Manner> mannerFor(const VELMORA::wire::PacketView* request,
                                    std::uint16_t answerId) const;
    bool spoilOne(Manner manner, const VELMORA::wire::PacketView* request, Outgoing& datagram);

    const Manners& manners_;  // of the settings
    std::mt19937 random_;
    bool dead_ = false, turned_ = false;
    std::uint64_t count_ = 0;
};

}  // namespace velmora_target
