#include "sync/StreamWorker.h"

#include <algorithm>

#include "base/LogLine.h"
#include "sync/StreamExchange.h"

namespace VELMORA {

using ZENNO::hasReached;
using ZENNO::logLevelEnabled;
using ZENNO::LogLine;

namespace {

constexpr std::uint32_t connectWaitMicros = 10000000;   // a try of CONNECT_REQ
constexpr std::uint32_t disconnectWaitMicros = 500000;  // a try of DSICONNECT_REQ
constexpr int disconnectTries = 4;
constexpr std::uint32_t leastNoAnswerLimit = 1000000;
constexpr std::uint32_t mostSilence = 0x7fffffff / 4;

std::mt19937 randomFor(const TransferProfile& row) {
    if (row.mode == modeRandom) return std::mt19937(std::random_device{}());
    return std::mt19937(5489);
}

}  // namespace

std::uint32_t noAnswerLimitFor(std::uint32_t infoCycle) noexcept {
    const std::uint64_t limit = std::uint64_t{infoCycle} * 8;
    return static_cast<std::uint32_t>(
        std::clamp<std::uint64_t>(limit, leastNoAnswerLimit, 0x7fffffff));
}

bool isRunnable(const TransferProfile& row, SinkConfig format,
                std::uint16_t maxPacketSize) noexcept {
    if (row.cycle == 0 || row.packetCount == 0) return false;
    return row.fixedBytes != 0 || (row.framesQ14 != 0 && maxPacketSize >= format.frameBytes());
}

StreamWorker::StreamWorker(Sync& sync)
    : sync_(sync),
      link_(*sync.socket_),
      clock_(sync.clock()),
      frameBytes_(static_cast<std::uint16_t>(sync.sinkConfig.frameBytes())),
      noAnswerLimit_(noAnswerLimitFor(sync.infoCycle)),
      random_(randomFor(sync.profiles[0])),
      ring_(PacketRing::sizeFor(sync.profiles[0]),
            PacketRing::largestPayload(sync.rowsInUse(), sync.maxPacketSize, frameBytes_)),
      received_(sync.socket_->readerSize),
      waiting_(sync.threadMode),
      exact_(clock_.exactSleep()),
      pace_(0, 0, /*catchUp=*/false),
      filter_(feedbackDepth(sync.threadMode)) {
    if (sync.lowCpu != 0 && sync.profileCount > 1) {
        profileIndex_ = lastProfile();
        LogLine(6) << "low cpu change profile " << profileIndex_;
    }
    cycle_ = row().cycle;
    framesQ14_ = row().framesQ14;
}

bool StreamWorker::run() {
    Step step = openStream();
    while (step == Step::goOn) step = pass();
    return step == Step::endNormally;
}

// ---- start ----

StreamWorker::Step StreamWorker::openStream() {
    wire::CONNECT_ANS answer;
    Step end = Step::goOn;
    if (!connectTarget(answer, end)) return end;

    targetInvert_ = answer.wantsInvert;
    hostInvert_ = hostWantsInvert();
    phaseStep();
    prefill();

    ZENNO::IPAddress streamAddress = sync_.target;
    streamAddress.setPortNumber(answer.streamPort);
    link_.setDestination(streamAddress);
    if (!sync_.enterConnected()) return leave();

    // The first turn comes at once, the second after half a cycle.
    now_ = clock_.now();
    lastReceive_ = lastInfo_ = lastTurn_ = now_;
    pace_ = Pace(now_, cycle_, /*catchUp=*/!has(NOFASTFEEDBACK));
    LogLine(6) << "redy to play loop start" << std::uint32_t{isPlaying()};
    trace_.clear();
    return Step::goOn;
}

bool StreamWorker::connectTarget(wire::CONNECT_ANS& answer, Step& end) {
    ZENNO::Bytes datagram;
    if (!sendAck(link_, clock_, sync_.target, write(wire::CONNECT_REQ{sync_.sinkConfig}),
                 wire::CONNECT_REQ::answer, datagram, connectWaitMicros)) {
        LogLine(3) << "wth CR send err";
        sync_.setStateAndNotify(Sync::Idle);
        end = Step::fail;
        return false;
    }
    const auto packet = wire::readPacket(datagram);
    const auto accepted = packet ? wire::read<wire::CONNECT_ANS>(*packet) : std::nullopt;
    if (!accepted) {
        LogLine(6) << "wth CR ack none";
        sync_.setStateAndNotify(Sync::Idle);
        end = Step::endNormally;
        return false;
    }
    answer = *accepted;
    return true;
}

// A cycle of silence lies ready before the clock starts. It follows the target's phase alone.
void StreamWorker::prefill() {
    const std::uint8_t silence = silenceByte(sync_.sinkConfig, targetInvert_);
    const std::uint32_t count = std::min<std::uint32_t>(row().packetCount, ring_.size());
    for (std::uint32_t i = 0; i < count; ++i) {
        PacketSlot& slot = ring_.at(static_cast<std::uint16_t>(i));
        slot.begin(static_cast<std::uint16_t>(i), std::uint64_t{framesQ14_ >> 14} * frameBytes_);
        std::ranges::fill(slot.payload(), silence);
        slot.finish();
    }
    prebuilt_ = count - 1;
}

// ---- one pass of the loop ----

StreamWorker::Step StreamWorker::pass() {
    filter_.onPass();
    const std::uint32_t state = sync_.state.load(std::memory_order_acquire);
    if (state != Sync::Connected && state != Sync::Disconnecting) return leave();
    if (drain_.isDone()) return disconnectExchange();

    now_ = clock_.now();
    int waitResult = ZENNO::waitTimedOut;
    std::uint32_t remaining = 0;
    bool due = pace_.isDue(now_);
    if (due) {
        waiting_.onDeadlineMet();
    } else {
        remaining = pace_.remaining(now_);
        const Waiting::Pass waiting = waiting_.onPass(remaining);
        if (waiting.yields) clock_.yield();
        if (waiting.polls) {
            if (waiting_.takeRest()) clock_.rest(remaining);
            return Step::goOn;
        }

        waitResult = waitForDeadline(remaining);
        if (waitResult == ZENNO::waitError) {
            LogLine(3) << "wth udp wait error";
            return Step::fail;
        }
        due = pace_.isDue(now_);
    }

    if (due) {
        if (const Step step = turn(remaining); step != Step::goOn) return step;
        if (waitResult == ZENNO::waitTimedOut) waitResult = link_.poll();
        if (waitResult == ZENNO::waitError) {
            LogLine(3) << "wth udp wait2 error";
            return Step::fail;
        }
    }

    const std::uint32_t silentFor = now_ - lastReceive_;
    if (hasReached(silentFor, noAnswerLimit_)) {
        LogLine(6) << "   timeout " << silentFor;
        return leave();
    }
    if (hasReached(heldUp_, 4 * std::min(noAnswerLimit_, mostSilence))) {
        LogLine(6) << "   timeout " << heldUp_;
        return leave();
    }
    return waitResult == ZENNO::waitReady ? receive() : Step::goOn;
}

// Up to the deadline or the next datagram; the time behind it is in now_. Who polls the end of a
// cycle looks for both by turns there, so that no wake-up stands between him and the deadline; and
// right before it for the clock alone: waking up for a datagram takes longer than what is left.
int StreamWorker::waitForDeadline(std::uint32_t remaining) {
    constexpr std::uint32_t clockAlone = 20;  // µs
    const std::uint32_t asleep = waiting_.waitFor(remaining);
    int result = exact_ ? waitExactly(asleep) : link_.waitReadable(asleep);
    now_ = clock_.now();
    // The last condition ends it where the clock steps back.
    while (asleep != remaining && result == ZENNO::waitTimedOut && !pace_.isDue(now_) &&
           pace_.remaining(now_) <= remaining) {
        if (pace_.remaining(now_) > clockAlone) result = link_.poll();
        now_ = clock_.now();
    }
    return result;
}

// Where a wait on the socket ends by a tick of the system, up to two of them are slept by the finer
// timer instead; the socket is looked at in between.
int StreamWorker::waitExactly(std::uint32_t micros) {
    constexpr std::uint32_t twoTicks = 2000;  // µs
    constexpr std::uint32_t slice = 500;
    const std::uint32_t begin = clock_.now();
    int result = link_.waitReadable(micros > twoTicks ? micros - twoTicks : 0);
    while (result == ZENNO::waitTimedOut) {
        const std::uint32_t passed = clock_.now() - begin;
        if (passed >= micros) break;
        exact_->sleep(std::min(micros - passed, slice));
        result = link_.poll();
    }
    return result;
}

// From here to the first sendto nothing touches the audio or the log but the over-time line.
StreamWorker::Step StreamWorker::turn(std::uint32_t remaining) {
    const Pace::Turn turn = pace_.onTurn(now_, cycle_, row(), sync_.maxPacketCount, random_);
    if (turn.overTime) {
        LogLine(4) << "over time " << turn.late << " " << remaining << " " << turn.lateDebt << " "
                   << pace_.overTimeScore();
    }
    factor_ = turn.factor;
    const bool infoDue = hasReached(now_ - lastInfo_, sync_.infoCycle);

    const std::uint16_t before = sequence_;
    // Only the last packet of a burst may block.
    const bool switchesMode = turn.burst >= 2 && !has(SOCKETNOBLOCK);
    if (switchesMode) link_.setBlocking(false);
    for (std::uint32_t i = 1; i <= turn.burst; ++i) {
        const bool last = i == turn.burst;
        if (switchesMode && last) link_.setBlocking(true);
        const Step step = resend_.pending() ? sendOldPacket(last) : sendNewPacket(last, infoDue);
        if (step != Step::goOn) return step;
    }
    countHeldUp(sequence_ != before);
    if (supply_.takeFetched()) sync_.getNewStreamDone();
    return Step::goOn;
}

// A target that keeps asking for old packets keeps new ones from going out, and the end of the
// stream with them. One with losses does so too, but new packets make up for as many turns.
void StreamWorker::countHeldUp(bool cameNearer) noexcept {
    const std::uint32_t passed = now_ - lastTurn_;
    lastTurn_ = now_;
    if (!isDisconnecting()) return;
    if (cameNearer) {
        heldUp_ -= std::min(heldUp_, passed);
    } else {
        heldUp_ = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(std::uint64_t{heldUp_} + passed, 0x7fffffff));
    }
}

StreamWorker::Step StreamWorker::sendNewPacket(bool lastOfBurst, bool infoDue) {
    PacketSlot& slot = ring_.at(sequence_);
    const bool asksInfo = lastOfBurst && infoDue;
    std::uint16_t flags = lastOfBurst ? wire::STREAM_DATA::lastOfBurst : std::uint16_t{0};
    if (asksInfo) {
        flags = wire::STREAM_DATA::lastOfBurst | wire::STREAM_DATA::asksInfo;
        lastInfo_ = now_;
        drain_.onInfoRequest();
    }
    wire::rewriteStreamFlags(slot.buffer, flags);
    if (!send(slot)) return Step::fail;
    if (asksInfo) LogLine(6) << "Request Info " << now_;
    trace(slot);
    if (slot.last != 0) drain_.onClosingSent();

    const std::uint32_t next =
        frames_.nextPayload(row(), framesQ14_, factor_, frameBytes_, sync_.maxPacketSize);
    ++sequence_;
    if (prebuilt_ != 0) {
        --prebuilt_;
        return Step::goOn;
    }
    return buildPacket(next);
}

StreamWorker::Step StreamWorker::sendOldPacket(bool lastOfBurst) {
    PacketSlot& slot = ring_.at(resend_.oldest(sequence_));
    slot.makeResendForm();
    wire::rewriteStreamFlags(slot.buffer, lastOfBurst ? wire::STREAM_DATA::lastOfBurst : 0);
    if (!send(slot)) return Step::fail;
    trace(slot);
    resend_.onResent();
    return Step::goOn;
}

// Ahead of its turn: at a deadline the packet is ready, and the wire is served first.
StreamWorker::Step StreamWorker::buildPacket(std::uint64_t payloadBytes) {
    PacketSlot& slot = ring_.at(sequence_);
    slot.begin(sequence_, payloadBytes);
    switch (supply_.fill(slot.payload(), drain_, *this, sync_.copyStream, silence_)) {
        case Supply::Filled::whole:
            break;
        case Supply::Filled::closingFinal:
            LogLine(6) << "buffer Final ";
            drain_.onClosingBuilt();
            slot.last = 1;
            break;
        case Supply::Filled::closingDisconnect:
            LogLine(6) << "buffer disconnect ";
            drain_.onClosingBuilt();
            slot.last = 1;
            break;
        case Supply::Filled::starved:
            LogLine(4) << "buffer timeout ";
            return Step::fail;
    }
    slot.finish();
    return Step::goOn;
}

bool StreamWorker::send(PacketSlot& slot) {
    if (link_.sendDatagram(slot.datagram(), /*retry=*/true)) return true;
    LogLine(3) << "wth udp send error " << link_.lastError();
    return false;
}

void StreamWorker::trace(const PacketSlot& slot) {
    if (!logLevelEnabled(6) || !trace_.add(clock_.now(), slot.size)) return;
    LogLine(6) << trace_.record();
    trace_.clear();
}

StreamWorker::Step StreamWorker::receive() {
    std::uint64_t length = 0;
    ZENNO::IPAddress from;
    if (!link_.receiveFrom({received_.data(), received_.size()}, length, from)) {
        LogLine(6) << "udp rcv error ";
        return leave();
    }
    if (!isFrom(link_, from, link_.destination())) return Step::goOn;
    const auto packet = wire::readPacket({received_.data(), length});
    if (!packet) return Step::goOn;

    // A target that only makes noise must not hold up the end of a stream.
    const bool answersTheEnd =
        packet->id() == wire::INFO_ANS::id || packet->id() == wire::DSICONNECT_ANS::id;
    if (answersTheEnd || !drain_.hasBegun()) lastReceive_ = now_;

    if (packet->id() == wire::DSICONNECT_ANS::id) {
        LogLine(6) << "DSICONNECT_ANS ";
        return leave();
    }
    const auto info = wire::read<wire::INFO_ANS>(*packet);
    return info ? onInfo(*info) : Step::goOn;
}

// ---- end ----

StreamWorker::Step StreamWorker::disconnectExchange() {
    const ZENNO::Bytes request = write(wire::DSICONNECT_REQ{});
    for (int tries = 0; tries < disconnectTries; ++tries) {
        if (!link_.sendDatagram(request, /*retry=*/true)) break;
        const int ready = link_.waitReadable(disconnectWaitMicros);
        if (ready == ZENNO::waitError) break;
        // A last look behind a wait that ended without data; only the look, since a blocking
        // socket would keep the read for ever.
        if (ready == ZENNO::waitTimedOut) {
            const int look = link_.poll();
            if (look == ZENNO::waitError) break;
            if (look == ZENNO::waitTimedOut) continue;
        }

        std::uint64_t length = 0;
        ZENNO::IPAddress from;
        if (!link_.receiveFrom({received_.data(), received_.size()}, length, from)) break;
        const auto packet = wire::readPacket({received_.data(), length});
        if (packet && isFrom(link_, from, link_.destination()) &&
            packet->id() == wire::DSICONNECT_ANS::id) {
            return leave();
        }
    }
    LogLine(6) << "DSICONNECT_REQ ERROR ";
    return leave();
}

StreamWorker::Step StreamWorker::leave() {
    sync_.state.store(Sync::Idle, std::memory_order_release);
    return Step::endNormally;
}

// ---- the session's side ----

bool Sync::streamWorker() {
    if (!hasRunnableProfiles()) {
        setStateAndNotify(Idle);
        return false;
    }
    return StreamWorker(*this).run();
}

bool Sync::hasRunnableProfiles() const noexcept {
    if (profileCount > static_cast<std::int32_t>(profiles.size())) return false;
    if (PacketRing::sizeFor(profiles[0]) == 0) return false;
    const auto frameBytes = static_cast<std::uint16_t>(sinkConfig.frameBytes());
    if (PacketRing::bytesFor(rowsInUse(), maxPacketSize, frameBytes) >
        PacketRing::mostBytesFor(std::uint64_t{sinkConfig.rate()} * frameBytes)) {
        return false;
    }
    const std::size_t last = profileCount > 1 ? static_cast<std::size_t>(profileCount) - 1 : 0;
    return isRunnable(profiles[0], sinkConfig, maxPacketSize) &&
           isRunnable(profiles[last], sinkConfig, maxPacketSize);
}

}  // namespace VELMORA
