#include "target/Negotiation.h"

#include <algorithm>

#include "target/Discovery.h"
#include "target/OutputChoice.h"
#include "target/Text.h"
#include "wire/StreamMessage.h"

namespace velmora_target {

using namespace VELMORA::wire;

namespace {

constexpr std::size_t mostPreludes = 16;
constexpr std::uint64_t latencyMask = 0xffff0000;  // of the class word
constexpr std::uint16_t plainHwLatency = 10;       // 100 µs, of an output without a device

std::uint16_t hwLatencyOf(const TargetSettings& settings) {
    const bool isDevice = settings.output.starts_with(alsaPrefix);
    return settings.hwLatency.value_or(isDevice ? settings.deviceLatency : plainHwLatency);
}

DATASIZE_ANS answerDataSize(const TargetSettings& settings, ConstBytes probe) {
    DATASIZE_ANS answer;
    answer.mtu = settings.mtu;
    answer.maxBurst = settings.maxBurst;
    answer.seenLength = static_cast<std::uint16_t>(probe.size());
    answer.seenSum = probeSum(probe);
    return answer;
}

}  // namespace

std::optional<ZENNO::Bytes> Negotiation::answer(const PacketView& packet,
                                                const ZENNO::IPAddress& from) {
    switch (packet.id()) {
        case SUPPORT_REQ::id: {
            SUPPORT_ANS answer;
            answer.mask = settings_.formats.answer(packet.arg64());
            return write(answer);
        }
        case LATENCY_REQ::id: {
            LATENCY_ANS answer;
            answer.latency = grant(packet.arg16(8));
            answer.hwLatency = hwLatencyOf(settings_);
            return write(answer);
        }
        case DATASIZE_REQ::id:
            return write(answerDataSize(settings_, packet.payload()));
        case PROFILE_REQ::id: {
            PROFILE_ANS answer;
            answer.minCycle10 = settings_.minCycle10;
            answer.maxCycle10 = settings_.maxCycle10;
            answer.profileFlags = settings_.profileFlags;
            return write(answer);
        }
        case CONNECTPRE_REQ::id: {
            CONNECTPRE_ANS answer;
            const auto wanted = static_cast<std::uint16_t>(packet.arg64() >> 16);
            Prelude& prelude = preludeOf(from);
            prelude.latency = grant(wanted);
            answer.word =
                (packet.arg64() & ~latencyMask) | static_cast<std::uint64_t>(prelude.latency) << 16;
            return write(answer);
        }
        case CLIENT_REQ::id: {
            Prelude& prelude = preludeOf(from);
            prelude.name = shownText(packet.text());
            prelude.productId = packet.arg64();
            return write(CLIENT_ANS{});
        }
        // Nothing is asked but that we are heard of; the same on the control port.
        case NOPBREAK_REQ::id:
            return refusal(NOPBREAK_REQ::answer);
        default:
            return std::nullopt;
    }
}

std::uint16_t Negotiation::grant(std::uint16_t wanted) const noexcept {
    return wanted == 0 ? settings_.latency : std::clamp(wanted, leastLatency, mostLatency);
}

Negotiation::Prelude& Negotiation::preludeOf(const ZENNO::IPAddress& host) {
    const auto found = std::find_if(preludes_.begin(), preludes_.end(),
                                    [&host](const Prelude& p) { return p.host == host; });
    if (found != preludes_.end()) return *found;
    if (preludes_.size() == mostPreludes) preludes_.erase(preludes_.begin());
    return preludes_.emplace_back(Prelude{host, settings_.latency, {}, 0});
}

Negotiation::Prelude Negotiation::takePrelude(const ZENNO::IPAddress& host) {
    Prelude prelude = preludeOf(host);
    std::erase_if(preludes_, [&host](const Prelude& p) { return p.host == host; });
    return prelude;
}

}  // namespace velmora_target
