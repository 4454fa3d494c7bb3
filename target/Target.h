// A whole target: the device that a host finds, negotiates with and plays to.
//
// It has no socket, no clock and no thread. Whoever runs it hands over every datagram that comes to
// the control port or to a sink's ports, calls onTime when nextTime is reached, and sends what
// comes out from the port that it names. Anything may come in: what is no sound packet, or no
// message that belongs there, is dropped.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "target/Info.h"
#include "target/Items.h"
#include "target/LogChannel.h"
#include "target/Mail.h"
#include "target/Misbehaviour.h"
#include "target/Settings.h"
#include "target/Sink.h"
#include "target/Transfers.h"

namespace velmora_target {

// What outlasts a target, and where to: without them nothing is kept and no transfer is taken.
struct Storage {
    KeptValues kept;  // from the last run; goes before the settings
    KeepValues keep;
    MakeInboxItem makeInboxItem;
};

class Target {
public:
    Target(TargetSettings settings, MakeOutput makeOutput, Storage storage = {});
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    // Of the settings' formats, what the output in force takes is what hosts are told, from here on
    // also when a host sets another output. When it takes nothing or cannot be asked, all of them
    // stand, whoever comes to play is refused, and the output is asked again every 5 s while nobody
    // plays. That is a text where the command line gave the output. One that a host has kept is
    // told by keptLines: the target stays, so that hosts can set another.
    std::string askFormatsBy(AskFormats ask);
    static constexpr std::uint64_t askEvery = 5'000'000;  // µs

    void onDatagram(const Arrival& arrival, Mail& out);
    void onTime(std::uint64_t now, Mail& out);
    std::uint64_t nextTime(std::uint64_t now) const;
    void endStreams(const std::string& reason, Mail& out);  // and transfers

    // Interfaces on which the target makes itself known to watching hosts; none at first.
    void announceOn(std::vector<std::uint32_t> scopes) { scopes_ = std::move(scopes); }

    const TargetSettings& settings() const noexcept { return settings_; }
    std::vector<std::string> keptLines() const;
    const TransferCounts& transferCounts() const noexcept { return transfers_.counts(); }
    std::uint64_t settingChanges() const noexcept { return items_.changes(); }
    std::uint64_t misbehaviours() const noexcept { return misbehaviour_.count(); }
    bool isConnected() const;
    bool isPlayingOut() const;             // what a stream left that has ended
    std::vector<Figures> figures() const;  // of the streams that run, by sink
    std::vector<Figures> takeEnded();      // of those that ended since the last call

private:
    std::optional<ZENNO::Bytes> answer(const Arrival& arrival,
                                       const VELMORA::wire::PacketView& packet, Mail& out);
    std::optional<ZENNO::Bytes> answerControl(const Arrival& arrival,
                                              const VELMORA::wire::PacketView& packet, Mail& out);
    Sink* sinkAt(std::uint16_t port);
    std::uint16_t portBeside(std::uint16_t port) const noexcept;
    bool announces() const noexcept { return settings_.announces && !scopes_.empty(); }
    bool askFormats();
    void askAgain(std::uint64_t now, Mail& out);
    void announce(std::uint64_t now, Mail& out);
    void tellReaders(Mail& out, std::size_t from);

    TargetSettings settings_;  // changed by items_ alone, but for the formats
    Items items_;
    const MakeOutput makeOutput_;
    const FormatMasks allowed_;
    AskFormats ask_;
    std::string askedOutput_, askFailure_;  // empty where it could be asked
    std::uint64_t nextAsk_ = 0;
    Sinks sinks_;
    Transfers transfers_;
    Info info_;
    LogChannel log_;
    Misbehaviour misbehaviour_;
    std::mt19937 random_;
    std::optional<std::uint64_t> begun_;  // the first time that it was told
    std::vector<std::uint32_t> scopes_;
    std::uint64_t nextNotify_ = 0;
    std::uint16_t notifyWord_ = 0;
};

}  // namespace velmora_target
