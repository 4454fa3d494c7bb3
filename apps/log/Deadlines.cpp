#include "apps/log/Deadlines.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace velmora_log {
namespace {

constexpr std::size_t leastBursts = 8;   // that tell a cycle
constexpr std::size_t longestStep = 16;  // bursts that one look at the cycle spans

// Of the gaps that make up half of the time, the shortest is a usual pause; a quarter of it lies
// well above what stands between the packets of a burst.
std::int64_t leastPause(std::span<const std::int64_t> times) {
    std::vector<std::int64_t> gaps;
    for (std::size_t i = 1; i < times.size(); ++i) gaps.push_back(times[i] - times[i - 1]);
    std::sort(gaps.rbegin(), gaps.rend());
    std::int64_t sum = 0;
    for (const std::int64_t gap : gaps) {
        sum += gap;
        if (2 * sum >= times.back() - times.front()) return gap / 4;
    }
    return 0;
}

}  // namespace

std::optional<std::uint32_t> estimateCycle(std::span<const std::int64_t> times) {
    if (times.size() < leastBursts) return std::nullopt;
    const std::int64_t pause = leastPause(times);
    std::vector<std::int64_t> bursts = {times.front()};
    for (std::size_t i = 1; i < times.size(); ++i) {
        if (times[i] - times[i - 1] > pause) bursts.push_back(times[i]);
    }
    if (bursts.size() < leastBursts) return std::nullopt;
    // The middle one of many looks: lateness on either side, and a cycle that was started afresh,
    // spoil some of them only.
    const std::size_t step = std::clamp<std::size_t>(bursts.size() / 4, 1, longestStep);
    std::vector<double> looks;
    for (std::size_t i = step; i < bursts.size(); ++i) {
        looks.push_back(static_cast<double>(bursts[i] - bursts[i - step]) /
                        static_cast<double>(step));
    }
    const auto middle = looks.begin() + static_cast<std::ptrdiff_t>(looks.size() / 2);
    std::nth_element(looks.begin(), middle, looks.end());
    const std::int64_t cycle = std::llround(*middle);
    constexpr std::int64_t longest = 10'000'000;
    if (cycle < 1 || cycle > longest) return std::nullopt;
    return static_cast<std::uint32_t>(cycle);
}

void Deadlines::loseTrack() {
    next_.reset();
    floor_ = 0;
    isAnchored_ = begins_ = wasLate_ = false;
    leastBefore_.clear();
}

void Deadlines::take(std::span<const std::int64_t> times, const Found& found) {
    opened_ = misfits_ = 0;
    for (std::size_t i = 0; i < times.size(); ++i) takePacket(times.subspan(i), found);
    if (least_ && follows_) {
        leastBefore_.push_back(*least_);
        if (leastBefore_.size() > aSecond) leastBefore_.pop_front();
    }
    tell(found);
    lateTurns_.clear();
    constexpr std::size_t tooMany = 8;
    if (misfits_ >= tooMany && 2 * misfits_ > opened_) loseTrack();
}

void Deadlines::takePacket(std::span<const std::int64_t> fromHere, const Found& found) {
    const std::int64_t time = fromHere.front(), cycle = cycle_, pause = time - last_;
    last_ = time;
    if (!next_) {
        isAnchored_ = begins_;
        next_ = begins_ ? time + cycle / 2 : time;
        if (!begins_) openBurst(time);
        begins_ = false;
        return;
    }
    const std::int64_t behind = time - *next_;
    const std::int64_t floor = least_ ? std::min(*least_, floor_) : floor_;
    // Before its deadline there is no burst: it belongs to the one before. Only behind a pause, and
    // where little is missing, the deadline is what is wrong.
    if (behind < floor && (pause <= cycle / 4 || behind < floor - cycle / 4)) {
        if (pause > cycle / 4) ++misfits_;
        return;
    }
    const std::int64_t late = behind - floor;
    const bool wasLate = std::exchange(wasLate_, false);
    if (isLateTurn(fromHere, late)) {
        const std::int64_t told = lateTurns_.front();
        lateTurns_.pop_front();
        openBurst(time);
        *next_ += told;
    } else if (late >= cycle && wasLate) {
        // It stays behind, so that a fresh start was not heard.
        tell(found);
        found({time, behind - floor_});
        startAfresh(time + cycle);
    } else {
        wasLate_ = late >= cycle;
        openBurst(time);
    }
}

// Whether this burst is the late turn that the driver tells of next: it is as late, and what comes
// behind it keeps to the fresh start.
bool Deadlines::isLateTurn(std::span<const std::int64_t> fromHere, std::int64_t late) const {
    if (lateTurns_.empty()) return false;
    const std::int64_t told = lateTurns_.front(), cycle = cycle_;
    const std::int64_t tolerance = std::min<std::int64_t>(cycle / 8, 100);
    if (late < told - tolerance) return false;
    const std::int64_t nextDeadline = fromHere.front() - late + told + cycle;
    for (std::size_t i = 1; i < fromHere.size(); ++i) {
        if (fromHere[i] - fromHere[i - 1] <= cycle / 4) continue;
        return fromHere[i] >= nextDeadline - tolerance;
    }
    return true;
}

void Deadlines::openBurst(std::int64_t time) {
    const std::int64_t behind = time - *next_;
    ++opened_;
    waiting_.push_back({time, behind});
    least_ = least_ ? std::min(*least_, behind) : behind;
    // An answer comes behind the burst that asked, and counts from the next one on.
    while (!changes_.empty() && changes_.front().at + cycle_ / 2 <= time) {
        follows_ = follows_ || changes_.front().cycle != cycle_;
        cycle_ = changes_.front().cycle;
        changes_.pop_front();
    }
    *next_ += cycle_;
}

void Deadlines::startAfresh(std::int64_t deadline) {
    next_ = deadline;
    floor_ = 0;
    isAnchored_ = true;
    leastBefore_.clear();
}

void Deadlines::tell(const Found& found) {
    if (least_) {
        floor_ = isAnchored_ ? std::min(floor_, *least_) : *least_;
        isAnchored_ = true;  // to the earliest so far
        if (follows_ && leastBefore_.size() == aSecond) {
            floor_ = *std::min_element(leastBefore_.begin(), leastBefore_.end());
        }
    }
    least_.reset();
    for (Burst& burst : waiting_) {
        burst.late -= floor_;
        found(burst);
    }
    waiting_.clear();
}

}  // namespace velmora_log
