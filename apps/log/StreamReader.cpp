#include "apps/log/StreamReader.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

namespace velmora_log {
namespace {

constexpr std::size_t recordsToEstimate = 20;  // about a second

// The number behind the first `name`; nothing where there is none.
std::optional<std::uint32_t> numberBehind(std::string_view text, std::string_view name) {
    const auto at = text.find(name);
    if (at == std::string_view::npos) return std::nullopt;
    const char* const begin = text.data() + at + name.size();
    std::uint32_t value = 0;
    const auto read = std::from_chars(begin, text.data() + text.size(), value);
    return read.ec == std::errc() ? std::optional(value) : std::nullopt;
}

// The last word, as a number.
std::optional<std::uint32_t> lastNumber(std::string_view text) {
    const auto blank = text.rfind(' ');
    return numberBehind(text.substr(blank == std::string_view::npos ? text.size() : blank), " ");
}

}  // namespace

void StreamReader::take(const Message& message) {
    if (message.isTrace()) {
        onTrace(message.trace);
    } else {
        onText(message.text);
    }
}

void StreamReader::onText(std::string_view text) {
    if (text.starts_with("start cycle=")) {
        onStart(text);
    } else if (text.starts_with("redy to play loop start")) {
        beginStream();
    } else if (text.starts_with("low cpu change profile ")) {
        told_.reset();
    } else if (text.starts_with("over time change profile ")) {
        ++figures_.profileChanges;
        forgetCycle();
    } else if (text.starts_with("over time ")) {
        if (const auto late = numberBehind(text, "over time ")) onLateTurn(*late);
    } else if (text.starts_with("Request Info ")) {
        if (const auto at = numberBehind(text, "Request Info ")) asked_ = unwrapped(*at);
    } else if (text.starts_with("info rcv ")) {
        onFeedback(text);
    } else if (text.starts_with("   cout resend ")) {
        ++figures_.resendRequests;
        figures_.resendPackets += lastNumber(text).value_or(0);
        if (last_) figures_.timeline.addResend(now());
    } else if (text.starts_with("SyncBuffer not enough mute data return ")) {
        ++figures_.underruns;
    }
}

// "start cycle=1000usec 1000.000000Hz size=0 cycleMin=0usec 0.000000Hz"
void StreamReader::onStart(std::string_view text) {
    told_ = numberBehind(text, "start cycle=");
    if (told_ == 0u) told_.reset();
    toldLeast_ = numberBehind(text, " cycleMin=").value_or(0);
    if (told_ && toldLeast_ >= *told_) toldLeast_ = 0;
}

// " cy=": the cycle from here on, where feedback changes that.
void StreamReader::onFeedback(std::string_view text) {
    const auto cycle = numberBehind(text, " cy=");
    if (!cycle || *cycle == 0 || isDrawn_) return;
    if (!deadlines_) {
        setCycle(*cycle, /*isEstimated=*/false);
        return;
    }
    deadlines_->changeCycle(asked_.value_or(std::numeric_limits<std::int64_t>::min() / 2), *cycle);
    figures_.cycle = *cycle;
    figures_.cycleIsEstimated = false;
}

void StreamReader::onLateTurn(std::uint32_t late) {
    ++figures_.lateTurns;
    figures_.worstLateTurn = std::max(figures_.worstLateTurn, late);
    worstSince_ = std::max(worstSince_, late);
    if (deadlines_) deadlines_->expectLate(late);
    if (last_) figures_.timeline.addLateTurn(now());
}

void StreamReader::beginStream() {
    finish();
    begins_ = true;
    last_.reset();
    asked_.reset();
    burstBefore_.reset();
    worstSince_ = 0;
    isDrawn_ = toldLeast_ != 0;
    deadlines_.reset();
    if (told_) setCycle(*told_, /*isEstimated=*/false);
}

void StreamReader::forgetCycle() {
    finish();
    deadlines_.reset();
    told_.reset();
    figures_.cycle.reset();
}

void StreamReader::setCycle(std::uint32_t cycle, bool isEstimated) {
    figures_.cycle = cycle;
    figures_.cycleIsEstimated = isEstimated;
    figures_.cycleIsDrawn = isDrawn_;
    deadlines_.emplace(cycle);
    if (begins_) deadlines_->beginHere();
    waitingRecords_ = 0;
    if (!waiting_.empty()) give(std::exchange(waiting_, {}));
}

void StreamReader::finish() {
    if (!waiting_.empty()) estimate();
    waiting_.clear();
    waitingRecords_ = 0;
}

void StreamReader::estimate() {
    if (const auto cycle = estimateCycle(waiting_)) setCycle(*cycle, /*isEstimated=*/true);
}

std::int64_t StreamReader::unwrapped(std::uint32_t micros) const {
    if (!last_) return micros;
    const auto apart = static_cast<std::int32_t>(micros - static_cast<std::uint32_t>(*last_));
    return *last_ + apart;
}

std::int64_t StreamReader::placeOf(std::int64_t micros) const {
    return offset_ + std::max<std::int64_t>(micros - origin_, 0);
}

// A stream that stood still says so by a late turn of about that length. Without, what is not there
// was not heard.
bool StreamReader::isMissing(std::int64_t gap) const {
    constexpr std::int64_t longWithoutCycle = 25'000;
    const std::int64_t cycle = figures_.cycle.value_or(0);
    const std::int64_t usual = cycle != 0 ? 3 * cycle : longWithoutCycle;
    return gap > usual && worstSince_ < gap - usual;
}

void StreamReader::onTrace(const std::vector<SentPacket>& trace) {
    std::int64_t first = unwrapped(trace.front().micros);
    if (last_ && first < *last_) {  // another counter: a stream whose begin was not heard
        told_.reset();
        toldLeast_ = 0;
        beginStream();
        begins_ = false;
        figures_.cycle.reset();
        first = trace.front().micros;
    }
    if (!last_) {
        ++figures_.streams;
        origin_ = first;
        offset_ = figures_.streamMicros;
    } else if (isMissing(first - *last_)) {
        ++figures_.missing;
        finish();
        if (deadlines_) deadlines_->loseTrack();
        burstBefore_.reset();
    }
    ++figures_.records;
    std::vector<std::int64_t> times;
    for (const SentPacket& packet : trace) {
        const std::int64_t time = last_ ? unwrapped(packet.micros) : first;
        // The counter never steps back within a record; where it seems to, it stands.
        times.push_back(std::max(time, last_.value_or(time)));
        last_ = times.back();
        ++figures_.packets;
        figures_.wireBytes += packet.wireBytes;
    }
    figures_.streamMicros = std::max(figures_.streamMicros, now());
    worstSince_ = 0;
    if (deadlines_) {
        give(times);
        return;
    }
    waiting_.insert(waiting_.end(), times.begin(), times.end());
    if (++waitingRecords_ >= recordsToEstimate) finish();
}

void StreamReader::give(const std::vector<std::int64_t>& times) {
    begins_ = false;
    if (isDrawn_) {
        countBursts(times);
    } else {
        deadlines_->take(times, [this](const Burst& burst) { onBurst(burst); });
    }
}

// Without deadlines, what stands apart is a burst.
void StreamReader::countBursts(const std::vector<std::int64_t>& times) {
    for (const std::int64_t time : times) {
        const std::int64_t apart = time - burstBefore_.value_or(time);
        if (burstBefore_ && apart <= toldLeast_ / 4) continue;
        if (burstBefore_) {
            figures_.apart.add(static_cast<std::uint32_t>(
                std::min<std::int64_t>(apart, std::numeric_limits<std::uint32_t>::max())));
        }
        burstBefore_ = time;
    }
}

void StreamReader::onBurst(const Burst& burst) {
    const auto clipped = [](std::int64_t value) {
        return static_cast<std::uint32_t>(
            std::clamp<std::int64_t>(value, 0, std::numeric_limits<std::uint32_t>::max()));
    };
    figures_.late.add(clipped(burst.late));
    figures_.timeline.addLateness(placeOf(burst.micros), clipped(burst.late));
    if (burstBefore_) figures_.apart.add(clipped(burst.micros - *burstBefore_));
    burstBefore_ = burst.micros;
}

}  // namespace velmora_log
