#include "target/ResendRequests.h"

#include <algorithm>
#include <iterator>

namespace velmora_target {

namespace {

// The oldest hole that is young enough to be asked for. They get no older with their numbers, and
// it is the young ones alone that are looked at: this is done with every datagram, and many holes
// may be old.
auto firstWanted(const std::map<std::int64_t, PacketQueue::Hole>& holes, std::uint64_t oldest,
                 std::uint64_t now) {
    auto first = holes.end();
    while (first != holes.begin() && now - std::prev(first)->second.since <= oldest) --first;
    return first;
}

}  // namespace

std::uint64_t ResendRequests::earliest(const PacketQueue::Hole& first, const PacketQueue& queue,
                                       std::uint64_t burstMicros) const {
    const std::uint64_t ripe = ages_.youngest == 0 ? 0 : first.since + ages_.youngest;
    if (sent_ == 0) return ripe;
    // The newest hole tells whether there is one that no request has covered.
    const bool isNew = !queue.holes().rbegin()->second.asked;
    return std::max(ripe,
                    lastRequest_ + (isNew ? leastSpacing : std::max(repeatAfter, 2 * burstMicros)));
}

std::optional<ResendRequests::Request> ResendRequests::due(PacketQueue& queue,
                                                           std::uint64_t burstMicros,
                                                           std::uint64_t now) {
    const auto& holes = queue.holes();
    const auto first = firstWanted(holes, ages_.oldest, now);
    if (first == holes.end() || now < earliest(first->second, queue, burstMicros)) {
        return std::nullopt;
    }
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
    const auto first = firstWanted(holes, ages_.oldest, now);
    return first == holes.end() ? ~0ull : earliest(first->second, queue, burstMicros);
}

}  // namespace velmora_target
