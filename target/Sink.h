// One sink: idle, or carrying one stream from one host.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "target/Mail.h"
#include "target/Negotiation.h"
#include "target/Stream.h"

namespace velmora_target {

class Sink {
public:
    Sink(const TargetSettings& settings, std::uint16_t sinkNo, const MakeOutput& makeOutput);

    // A sound packet for one of this sink's ports. The answer goes back to the sender by whoever
    // asked; what goes out on the sink's own account is in `out`.
    std::optional<ZENNO::Bytes> onPacket(const Arrival& arrival,
                                         const VELMORA::wire::PacketView& packet, Mail& out);
    void onTime(std::uint64_t now, Mail& out);
    std::uint64_t nextTime(std::uint64_t now) const;  // ~0 for never
    void endStream(const std::string& reason, Mail& out);

    bool hasPort(std::uint16_t port) const noexcept {
        return port == sink().port || port == sink().streamPort;
    }
    bool isConnected() const noexcept { return stream_.has_value(); }
    bool isPlayingOut() const noexcept { return ending_ != nullptr; }  // of a stream that ended
    std::string describe() const;                                      // "idle", or who plays what
    std::optional<Figures> figures() const;
    std::vector<Figures> takeEnded();  // streams that ended since the last call

private:
    const SinkSettings& sink() const noexcept { return settings_.sinks[sinkNo_ - 1u]; }
    bool isBusyFor(const ZENNO::IPAddress& host, std::uint64_t now) const;
    ZENNO::Bytes connect(const Arrival& arrival, VELMORA::SinkConfig format, Mail& out);

    const TargetSettings& settings_;
    std::uint16_t sinkNo_;
    const MakeOutput& makeOutput_;
    Negotiation negotiation_;
    std::optional<Stream> stream_;
    std::unique_ptr<AudioOutput> ending_;  // has something left to play
    std::vector<Figures> ended_;
};

}  // namespace velmora_target
