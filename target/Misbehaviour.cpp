#include "target/Misbehaviour.h"

#include <algorithm>
#include <array>

#include "target/Discovery.h"
#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

constexpr std::array table{
    MannerName{"silent", "no answer", Manner::silent, false},
    MannerName{"dead", "no answer, and none to anything after it", Manner::dead, false},
    MannerName{"refuse", "a refusal", Manner::refuse, false},
    MannerName{"accept", "accepted, whatever it says", Manner::accept, false},
    MannerName{"other-id", "under an id of no message", Manner::otherId, false},
    MannerName{"short", "with half a header", Manner::cutShort, false},
    MannerName{"echo", "the request itself", Manner::echo, false},
    MannerName{"other-port", "from another port", Manner::otherPort, false},
    MannerName{"zeros", "all that it tells is 0", Manner::zeros, false},
    MannerName{"ones", "all that it tells is 65535", Manner::ones, false},
    MannerName{"garbage", "all that it tells is drawn at random", Manner::garbage, false},
    MannerName{"resend-all", "asks for all that a host has, with every packet", Manner::resendAll,
               true},
    MannerName{"resend-more", "asks for more than a host has, with every packet",
               Manner::resendMore, true},
    MannerName{"contradict", "feedback and phase turn round with every packet", Manner::contradict,
               true},
};

constexpr std::uint16_t noMessage = 0x7ffe;
// A host keeps about a second: of one packet a millisecond so many are still there.
constexpr std::uint16_t window = 1000, beyondAnyWindow = 0x8000;

// Such a manner adds to what the target says; it spoils nothing.
bool isOfStreamAlone(Manner manner) {
    return std::any_of(table.begin(), table.end(), [manner](const MannerName& m) {
        return m.manner == manner && m.ofStreamAlone;
    });
}

void setWord(ZENNO::Bytes& datagram, std::size_t at, std::uint16_t v) {
    store16(datagram, at, v);
}

}  // namespace

std::span<const MannerName> manners() noexcept {
    return table;
}

std::optional<MannerName> mannerNamed(std::string_view name) noexcept {
    const auto found = std::find_if(table.begin(), table.end(),
                                    [name](const MannerName& m) { return m.name == name; });
    return found == table.end() ? std::nullopt : std::optional(*found);
}

std::optional<Manner> Misbehaviour::mannerFor(const PacketView* request,
                                              std::uint16_t answerId) const {
    // What is said without being asked belongs to the stream or to the log, or stands for itself.
    const std::uint16_t step = answerId == INFO_ANS::id  ? STREAM_DATA::id
                               : answerId == LOG_ANS::id ? LOG_REQ::id
                               : request != nullptr      ? request->id()
                                                         : answerId;
    const auto found = manners_.find(step);
    return found == manners_.end() ? std::nullopt : std::optional(found->second);
}

void Misbehaviour::spoil(const PacketView* request, std::uint16_t otherPort, Mail& out,
                         std::size_t first) {
    if (manners_.empty()) return;
    const auto begin = out.datagrams.begin() + static_cast<std::ptrdiff_t>(first);
    const auto isGone = [&](Outgoing& datagram) {
        if (dead_) return true;
        const auto packet = readPacket(datagram.data);
        const auto manner = packet ? mannerFor(request, packet->id()) : std::nullopt;
        if (!manner || isOfStreamAlone(*manner)) return false;
        ++count_;
        if (*manner == Manner::otherPort) datagram.localPort = otherPort;
        return !spoilOne(*manner, request, datagram);
    };
    out.datagrams.erase(std::remove_if(begin, out.datagrams.end(), isGone), out.datagrams.end());
}

// False: nothing goes out.
bool Misbehaviour::spoilOne(Manner manner, const PacketView* request, Outgoing& datagram) {
    ZENNO::Bytes& data = datagram.data;
    switch (manner) {
        case Manner::silent:
            return false;
        case Manner::dead:
            dead_ = true;
            return false;
        case Manner::refuse:
            data = refusal(load16(data, 4));
            break;
        case Manner::accept:
            setWord(data, 6, static_cast<std::uint16_t>(load16(data, 6) | 1));
            break;
        case Manner::otherId:
            setWord(data, 4, noMessage);
            break;
        case Manner::cutShort:
            data.resize(headerBytes / 2);
            break;
        case Manner::echo:
            if (request == nullptr) return false;
            data.assign(request->datagram().begin(), request->datagram().end());
            break;
        case Manner::zeros:
        case Manner::ones:
            for (std::size_t at = 8; at < headerBytes; at += 2) {
                setWord(data, at, manner == Manner::ones ? 0xffff : 0);
            }
            break;
        case Manner::garbage:
            for (std::size_t at = 8; at < data.size(); ++at) {
                data[at] = static_cast<std::uint8_t>(random_());
            }
            break;
        case Manner::otherPort:
        case Manner::resendAll:
        case Manner::resendMore:
        case Manner::contradict:
            break;
    }
    return true;
}

void Misbehaviour::onAudio(const Arrival& arrival, const PacketView& packet, Mail& out) {
    const auto found = manners_.find(STREAM_DATA::id);
    if (found == manners_.end() || dead_) return;
    const std::uint16_t sequence = packet.arg16(8);
    INFO_ANS message;
    switch (found->second) {
        case Manner::resendAll:
            message.isResend = true;
            message.fill =
                static_cast<std::uint16_t>(sequence - std::min<std::uint16_t>(sequence, window));
            message.fillTarget = sequence;
            break;
        case Manner::resendMore:
            message.isResend = true;
            message.fill = static_cast<std::uint16_t>(sequence - beyondAnyWindow);
            message.fillTarget = sequence;
            break;
        case Manner::contradict:
            turned_ = !turned_;
            message.wantsInvert = turned_;
            message.feedback = static_cast<std::uint16_t>(turned_ ? 0x7fff : 0x8001);
            message.fill = turned_ ? std::uint16_t{0xffff} : std::uint16_t{0};
            message.fillTarget = turned_ ? std::uint16_t{0} : std::uint16_t{0xffff};
            break;
        default:
            return;
    }
    ++count_;
    out.datagrams.push_back({arrival.localPort, arrival.from, write(message)});
}

}  // namespace velmora_target
