#include "target/Transfer.h"

namespace velmora_target {

using namespace VELMORA::wire;

Transfer::Taken Transfer::onData(const TRANSFER_DATA& packet, ConstBytes data, std::uint64_t now) {
    const std::uint64_t place = std::uint64_t{packet.block} * channel_.blockPackets + packet.index;
    if (packet.index >= channel_.blockPackets || packet.seq != (place & 0xffff) || data.empty() ||
        data.size() > channel_.packetBytes) {
        return Taken::foreign;
    }
    heard_ = now;
    if (packet.block >= channel_.blocks) return Taken::beyond;
    if (place < next_ || held_.contains(place)) {
        ++duplicates_;
        return Taken::sound;
    }
    if (hasShort_) return Taken::foreign;
    // One that is too far ahead is asked for again by its acknowledgement, which names an earlier.
    if (place - next_ > mostAhead) return Taken::sound;
    if (place != next_) {
        held_.emplace(place, ZENNO::Bytes(data.begin(), data.end()));
        return Taken::sound;
    }
    append(data);
    for (auto at = held_.begin(); at != held_.end() && at->first == next_ && !hasShort_;
         at = held_.erase(at)) {
        append(at->second);
    }
    return Taken::sound;
}

void Transfer::append(ConstBytes data) {
    ++next_;
    hasShort_ = data.size() < channel_.packetBytes;
    crc_.add(data);
    bytes_ += data.size();
    if (!failure_.empty()) return;
    failure_ = item_->append(data);
    if (!failure_.empty()) item_->discard();
}

}  // namespace velmora_target
