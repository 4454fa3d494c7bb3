// What the stream worker does with the target's words: it trims the flow, books lost packets for a
// second sending, falls back to the longer cycle, and follows the phase that is asked for. Runs
// between turns.
#include "base/LogLine.h"
#include "sync/StreamWorker.h"

namespace VELMORA {

using ZENNO::logLevelEnabled;
using ZENNO::LogLine;

namespace {

const char* phaseName(bool invert) noexcept {
    return invert ? "Invert" : "Normal";
}

}  // namespace

StreamWorker::Step StreamWorker::onInfo(const wire::INFO_ANS& info) {
    drain_.onInfo();
    if (info.isResend) return onResendRequest(info);
    onFeedback(info);
    return Step::goOn;
}

StreamWorker::Step StreamWorker::onResendRequest(const wire::INFO_ANS& info) {
    const auto request = resend_.onRequest(sequence_, info.resendFrom(), ring_.size());
    if (request.lost) {
        LogLine(6) << "   cout error " << info.resendFrom() << "   " << info.resendLast() << " "
                   << request.wanted;
        return leave();
    }
    // The time that the extra packets take is booked, so that bursts grow and none is lost.
    pace_.owe(static_cast<std::uint32_t>(std::uint64_t{request.more} * cycle_ / row().packetCount));
    LogLine(6) << "   cout resend " << info.resendFrom() << "   " << info.resendLast() << " "
               << request.wanted;
    return Step::goOn;
}

void StreamWorker::onFeedback(const wire::INFO_ANS& info) {
    const auto feedback = wire::decodeFeedback(info);
    filter_.onFeedback(feedback.value);
    changeProfile();
    cycle_ = filter_.cycleFor(row());
    framesQ14_ = filter_.framesFor(row());

    if (info.wantsInvert != targetInvert_ || hostWantsInvert() != hostInvert_) {
        targetInvert_ = info.wantsInvert;
        hostInvert_ = hostWantsInvert();
        phaseStep();
    }
    if (logLevelEnabled(6)) {
        LogLine(6) << feedbackText(feedback.encoding, feedback.value, filter_, row(), cycle_,
                                   framesQ14_);
    }
}

// A machine that comes late too often gets the longer cycle, for the rest of the stream.
void StreamWorker::changeProfile() {
    constexpr std::int32_t tooOften = 200;
    if (pace_.overTimeScore() < tooOften || sync_.profileCount < 2 ||
        profileIndex_ == lastProfile()) {
        return;
    }
    LogLine(4) << "over time change profile " << profileIndex_ << " to " << lastProfile();
    profileIndex_ = lastProfile();
}

// Takes effect with the next packet built.
void StreamWorker::phaseStep() {
    const bool playInvert = hostInvert_ != targetInvert_;
    LogLine(6) << "Host Phase " << phaseName(hostInvert_);
    LogLine(6) << "Play Phase " << phaseName(playInvert);
    sync_.copyStream = withPolarity(sync_.copyStream, playInvert);
    silence_ = silenceByte(sync_.sinkConfig, playInvert);
}

}  // namespace VELMORA
