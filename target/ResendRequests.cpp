#include "target/ResendRequests.h"

#include <algorithm>

namespace velmora_target {

namespace {

// The oldest hole that is young enough to be asked for.
auto firstWanted(const std::map<std::int64_t, PacketQueue::Hole>& holes, std::uint64_t now) {
    return std::find_if(holes.begin(), holes.end(), [now](const auto& hole) {
        return now - hole.second.since <= ResendRequests::oldestHole;
    });
}

}  // namespace

std::uint64_t ResendRequests::earliest(const PacketQueue& queue, std::uint64_t burstMicros) const {
    if (sent_ == 0) return 0;
    // The newest hole tells whether there is one that no request has covered.
    const bool isNew = !queue.holes().rbegin()->second.asked;
    return lastRequest_ + (isNew ? leastSpacing : std::max(repeatAfter, 2 * burstMicros));
}

std::optional<ResendRequests::Request> ResendRequests::due(PacketQueue& queue,
                                                           std::uint64_t burstMicros,
                                                           std::uint64_t now) {
    const auto& holes = queue.holes();
    if (holes.empty() || now < earliest(queue, burstMicros)) return std::nullopt;
    const auto first = firstWanted(holes, now);
    if (first == holes.end()) return std::nullopt;
    const std::int64_t from = first->first;
    const Request request{static_cast<std::uint16_t>(from),
                          static_cast<std::uint16_t>(holes.rbegin()->first)};
    queue.markAsked(from);
    lastRequest_ = now;
    ++sent_;
    return request;
}

std::uint64_t ResendRequests::nextTime(const PacketQueue& queue, std::uint64_t burstMicros,
                                       std::uint64_t now) const {
    const auto& holes = queue.holes();
    return firstWanted(holes, now) == holes.end() ? ~0ull : earliest(queue, burstMicros);
}

}  // namespace velmora_target
