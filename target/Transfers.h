// The channels of the target: who transfers to which, acknowledgements, and how it ended.
//
// A channel takes one transfer at a time. Its host may begin anew whenever it likes; another host
// has to wait until it is silent. A burst is acknowledged by its marked packet and by nothing else,
// so that a host that waits for an answer gets one, not one for each packet.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "target/Mail.h"
#include "target/Transfer.h"

namespace velmora_target {

struct TransferCounts {
    std::uint64_t whole = 0, failed = 0;
    std::uint64_t bytes = 0;       // of the whole ones
    std::uint64_t duplicates = 0;  // packets, of all that ended
};

class Transfers {
public:
    Transfers(const TargetSettings& settings, MakeInboxItem makeItem);

    // The answer to TRANSFER_REQ, TRANSFER_DATA or TRANSFEREND_REQ; nothing for other messages.
    std::optional<ZENNO::Bytes> answer(const Arrival& arrival,
                                       const VELMORA::wire::PacketView& packet, Mail& out);
    void onTime(std::uint64_t now, Mail& out);
    std::uint64_t nextTime() const;
    void endAll(const std::string& reason, Mail& out);
    const TransferCounts& counts() const noexcept { return counts_; }

    static constexpr std::uint64_t silenceLimit = 5'000'000;  // µs

private:
    struct Ended {  // for a host that has not heard the answer
        ZENNO::IPAddress host{};
        std::uint16_t askedCrc = 0;
        VELMORA::wire::TRANSFEREND_ANS answer;
    };
    struct Channel {
        std::optional<Transfer> running;
        std::optional<Ended> ended;             // the last one
        std::optional<std::uint16_t> wholeCrc;  // of the last whole one
        bool toldBeyond = false;
    };
    // Numbers are the wire's, from 1.
    Channel* channelAt(std::uint16_t number);
    ZENNO::Bytes begin(std::uint16_t number, const Arrival& arrival, Mail& out);
    std::optional<ZENNO::Bytes> onData(const Arrival& arrival,
                                       const VELMORA::wire::PacketView& packet, Mail& out);
    ZENNO::Bytes end(const VELMORA::wire::TRANSFEREND_REQ& request, const Arrival& arrival,
                     Mail& out);
    std::string finish(Transfer& transfer, std::uint16_t crc) const;
    void fail(std::size_t channel, const std::string& why, Mail& out);

    const TargetSettings& settings_;
    MakeInboxItem makeItem_;
    std::vector<Channel> channels_;
    TransferCounts counts_;
};

}  // namespace velmora_target
