// The real-time heart: one stream from CONNECT_REQ to DSICONNECT_ANS, turn by turn.
//
// A turn is due at each deadline: it sends one burst of packets, which lie ready, and builds the
// next ones behind it; then it looks at the socket. What is decided on the way stands in the
// members, each of which is told the time and never asks for it. Lives on the worker's stack for
// the length of a stream; all its memory is taken before the first packet.
#pragma once

#include <cstdint>
#include <memory>
#include <random>

#include "sync/Drain.h"
#include "sync/FeedbackFilter.h"
#include "sync/FrameCounter.h"
#include "sync/Pace.h"
#include "sync/PacketRing.h"
#include "sync/PacketTrace.h"
#include "sync/ResendWindow.h"
#include "sync/Supply.h"
#include "sync/Sync.h"
#include "sync/ThreadMode.h"
#include "wire/StreamMessage.h"

namespace VELMORA {

// µs without a sign of life from the target that end a stream: eight requests for INFO_ANS, and at
// least a second. Never so long that the clock's wrap would make it look past at once.
std::uint32_t noAnswerLimitFor(std::uint32_t infoCycle) noexcept;

// Whether a stream can run by `row`: it has time, packets and, sooner or later, a frame in them.
bool isRunnable(const TransferProfile& row, SinkConfig format,
                std::uint16_t maxPacketSize) noexcept;

class StreamWorker final : private AudioSource {
public:
    explicit StreamWorker(Sync& sync);  // the session's rows are runnable
    bool run();                         // false: the stream failed

private:
    enum class Step { goOn, endNormally, fail };

    // ---- start ----
    Step openStream();
    bool connectTarget(wire::CONNECT_ANS& answer, Step& end);
    void prefill();

    // ---- one pass of the loop ----
    Step pass();
    int waitForDeadline(std::uint32_t remaining);
    int waitExactly(std::uint32_t micros);
    Step turn(std::uint32_t remaining);
    void countHeldUp(bool cameNearer) noexcept;
    Step sendNewPacket(bool lastOfBurst, bool infoDue);
    Step sendOldPacket(bool lastOfBurst);
    Step buildPacket(std::uint64_t payloadBytes);
    bool send(PacketSlot& slot);
    void trace(const PacketSlot& slot);
    Step receive();

    // ---- what the target says ----
    Step onInfo(const wire::INFO_ANS& info);
    Step onResendRequest(const wire::INFO_ANS& info);
    void onFeedback(const wire::INFO_ANS& info);
    void changeProfile();
    void phaseStep();

    // ---- end ----
    Step disconnectExchange();
    Step leave();  // state Idle, a normal end

    // AudioSource
    bool getNewStream(StreamRef& out) override { return sync_.getNewStream(out); }
    bool isPlaying() const noexcept override {
        return sync_.playing.load(std::memory_order_acquire) != 0;
    }
    bool isDisconnecting() const noexcept override {
        return sync_.state.load(std::memory_order_acquire) == Sync::Disconnecting;
    }

    bool has(std::uint32_t flag) const noexcept { return (sync_.threadMode & flag) != 0; }
    bool hostWantsInvert() const noexcept {
        return sync_.phaseInvert.load(std::memory_order_acquire) != 0;
    }
    const TransferProfile& row() const noexcept {
        return sync_.profiles[static_cast<std::size_t>(profileIndex_)];
    }
    std::int32_t lastProfile() const noexcept { return sync_.profileCount - 1; }

    Sync& sync_;
    ZENNO::Link& link_;
    ZENNO::Clock& clock_;

    const std::uint16_t frameBytes_;
    const std::uint32_t noAnswerLimit_;
    std::mt19937 random_;  // drawn once a turn, in Random mode only
    PacketRing ring_;
    ZENNO::Bytes received_;  // one datagram

    std::int32_t profileIndex_ = 0;
    std::uint32_t cycle_ = 0;      // µs to the next deadline, as feedback has trimmed it
    std::uint32_t framesQ14_ = 0;  // frames of a packet, likewise

    Waiting waiting_;
    const std::unique_ptr<ZENNO::ExactSleep> exact_;  // none where waits on the socket are exact
    Pace pace_;
    FrameCounter frames_;
    Supply supply_;
    FeedbackFilter filter_;
    ResendWindow resend_;
    Drain drain_;
    PacketTrace trace_;

    std::uint32_t now_ = 0;       // the pass's own time
    std::uint16_t sequence_ = 0;  // of the next new packet to send
    std::uint32_t prebuilt_ = 0;  // prefilled packets that are not yet passed
    float factor_ = 1.0f;         // of this turn's cycle
    std::uint32_t lastInfo_ = 0;  // last request for INFO_ANS
    std::uint32_t lastReceive_ = 0;
    std::uint32_t lastTurn_ = 0;
    std::uint32_t heldUp_ = 0;  // µs that old packets have kept the end from coming nearer
    bool targetInvert_ = false, hostInvert_ = false;
    std::uint8_t silence_ = 0;
};

}  // namespace VELMORA
