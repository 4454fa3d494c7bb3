// What is settled with the target before a stream: its formats, its latency, its limits; and the
// announcement of who is going to stream what.
#include <optional>
#include <utility>

#include "base/LogLine.h"
#include "sync/StreamExchange.h"
#include "sync/Sync.h"
#include "wire/StreamMessage.h"

namespace VELMORA {

using ZENNO::Bytes;
using ZENNO::logLevelEnabled;
using ZENNO::LogLine;

namespace {

constexpr std::uint32_t shortWait = 10000;  // µs a try
constexpr std::uint32_t announceWait =
    10000000;  // µs a try, where the target may have to wake up first

// What an exchange brought, as the message it was asked for.
template <class M>
std::optional<M> answerAs(const Bytes& answer) {
    const auto packet = wire::readPacket(answer);
    return packet ? wire::read<M>(*packet) : std::nullopt;
}

}  // namespace

bool Sync::ask(const ZENNO::IPAddress& to, const Bytes& request, std::uint16_t answerId,
               Bytes& answer, std::uint32_t waitMicros) {
    return sendAck(*socket_, clock(), to, request, answerId, answer, waitMicros);
}

bool Sync::getInfo(const ZENNO::IPAddress& to, const std::uint32_t& latencyWanted, bool nopBreak) {
    Bytes answer;
    if (nopBreak &&
        !ask(to, write(wire::NOPBREAK_REQ{}), wire::NOPBREAK_REQ::answer, answer, shortWait)) {
        return false;
    }
    if (!readSupport(to) || !readProfile(to) || !readLatency(to, latencyWanted)) return false;
    readDataSize(to);
    target = to;
    targetLog_.ask(to);
    if (logLevelEnabled(6)) clock().sleep(110000);  // until the target's log channel is up
    return true;
}

bool Sync::askSupport(const ZENNO::IPAddress& to, std::uint64_t selector, std::uint64_t& mask) {
    Bytes answer;
    if (!ask(to, write(wire::SUPPORT_REQ{selector}), wire::SUPPORT_REQ::answer, answer,
             shortWait)) {
        return false;
    }
    const auto support = answerAs<wire::SUPPORT_ANS>(answer);
    if (!support) return false;
    mask = support->mask;
    return true;
}

bool Sync::readSupport(const ZENNO::IPAddress& to) {
    std::uint64_t summary = 0;
    if (!askSupport(to, 0, summary) || summary == 0) return false;

    pcmSupport = dsdLsbSupport = dsdMsbSupport = 0;
    const bool dsd = (summary & SinkConfig::dsdMask) != 0;
    struct Detail {
        bool offered;
        std::uint64_t selector;
        std::uint64_t& mask;
    };
    const std::uint64_t pcmFormats = summary & SinkConfig::pcmMask;
    const Detail details[] = {
        {pcmFormats != 0, pcmFormats, pcmSupport},
        {dsd && (summary & SinkConfig::dsdLsb) != 0, SinkConfig::dsdLsb, dsdLsbSupport},
        {dsd && (summary & SinkConfig::dsdMsb) != 0, SinkConfig::dsdMsb, dsdMsbSupport},
    };
    for (const Detail& detail : details) {
        if (detail.offered && !askSupport(to, detail.selector, detail.mask)) return false;
    }
    return (pcmSupport | dsdLsbSupport | dsdMsbSupport) != 0;
}

bool Sync::readProfile(const ZENNO::IPAddress& to) {
    Bytes answer;
    if (!ask(to, write(wire::PROFILE_REQ{sinkConfig}), wire::PROFILE_REQ::answer, answer,
             shortWait)) {
        return false;
    }
    const auto profile = answerAs<wire::PROFILE_ANS>(answer).value_or(wire::PROFILE_ANS{});
    transfer.minCycle10 = profile.minCycle10;
    transfer.maxCycle10 = profile.maxCycle10;
    transfer.profileFlags = profile.profileFlags;
    transfer.cycle = 0;
    return true;
}

bool Sync::readLatency(const ZENNO::IPAddress& to, const std::uint32_t& latencyWanted) {
    const auto askLatency = [&](std::uint16_t wanted) -> std::optional<wire::LATENCY_ANS> {
        Bytes answer;
        if (!ask(to, write(wire::LATENCY_REQ{wanted}), wire::LATENCY_REQ::answer, answer,
                 shortWait)) {
            return std::nullopt;
        }
        return answerAs<wire::LATENCY_ANS>(answer);
    };

    const auto offered = askLatency(0);
    if (!offered) return false;
    hwLatency = offered->hwLatency;  // the first answer's, whatever the second one says
    const auto wanted = static_cast<std::uint16_t>(latencyWanted / 100);
    if (wanted == 0) {
        latency = offered->latency;
        LogLine(6) << "LATENCY_REQ hw=" << std::uint32_t{hwLatency} * 100
                   << "us latency=" << std::uint32_t{latency} * 100 << "us";
        return true;
    }
    const auto granted = askLatency(wanted);
    if (!granted) return false;
    latency = granted->latency;
    LogLine(6) << "LATENCY_REQ hw=" << std::uint32_t{hwLatency} * 100
               << "us request=" << std::uint32_t{wanted} * 100
               << "us latency=" << std::uint32_t{latency} * 100 << "us";
    return true;
}

// Never fails: a target that does not tell is taken for one on an ordinary Ethernet.
void Sync::readDataSize(const ZENNO::IPAddress& to) {
    Bytes answer;
    const bool worked =
        ask(to, write(wire::DATASIZE_REQ{}), wire::DATASIZE_REQ::answer, answer, shortWait);
    const auto size = worked ? answerAs<wire::DATASIZE_ANS>(answer) : std::nullopt;
    if (!size) {
        setPacketLimits(1500, 15000);
        return;
    }
    LogLine(6) << "DATASIZE_REQ mtu=" << size->mtu << " max=" << size->maxBurst;
    setPacketLimits(size->mtu, size->maxBurst);
}

// The mask clears bits 0 and 3 on purpose: 1500 has to give 1428. An MTU below 64 wraps, in 16
// bits; one of exactly 64 allows no payload, which every trial of a transfer refuses.
void Sync::setPacketLimits(std::uint16_t mtu, std::uint16_t max) noexcept {
    maxPacketSize = static_cast<std::uint16_t>((mtu - 64) & 0xfff6);
    if (max == 65535) {
        maxPacketCount = 65535;
    } else {
        maxPacketCount = static_cast<std::uint16_t>(mtu == 0 ? 0 : max / mtu);
    }
}

bool Sync::connectPrepare() {
    Bytes answer;
    if (!ask(target, write(wire::CONNECTPRE_REQ{wire::classWord(sinkConfig, latency)}),
             wire::CONNECTPRE_REQ::answer, answer, announceWait)) {
        LogLine(3) << "wth CR send err";
        setStateAndNotify(Idle);
        return false;
    }
    const auto granted = answerAs<wire::CONNECTPRE_ANS>(answer);
    if (!granted) return true;  // a target that knows no announcement is none that asks for a name
    LogLine(6) << "CONNECTPRE_REQ latency=" << std::uint32_t{granted->latency()} * 100 << "us";
    return ask(target, write(wire::CLIENT_REQ{.productId = productId, .name = clientName}),
               wire::CLIENT_REQ::answer, answer, shortWait);
}

bool Sync::checkAlive() {
    Bytes answer;
    return ask(target, write(wire::SUPPORT_REQ{}), wire::SUPPORT_REQ::answer, answer, shortWait) &&
           !answer.empty();
}

bool Sync::checkPacketSize(const ZENNO::IPAddress& to, std::uint16_t& mtu) {
    const std::uint16_t probed = std::exchange(mtu, std::uint16_t{0});
    if (probed < 64) return false;
    const auto probeBytes = static_cast<std::uint16_t>(probed - 64);
    Bytes pattern(probeBytes);
    wire::fillProbe(pattern);

    Bytes answer;
    if (!ask(to, write(wire::DATASIZE_REQ{probeBytes}), wire::DATASIZE_REQ::answer, answer,
             shortWait)) {
        return false;
    }
    const auto seen = answerAs<wire::DATASIZE_ANS>(answer);
    if (!seen || seen->seenSum != wire::probeSum(pattern)) return false;
    mtu = static_cast<std::uint16_t>(seen->seenLength + 64);
    return true;
}

void Sync::totalLatency(std::uint32_t& micros) const {
    micros = (std::uint32_t{latency} + hwLatency) * 100;
}

}  // namespace VELMORA
