#include "sync/Supply.h"

#include <algorithm>
#include <utility>

namespace VELMORA {

Supply::Filled Supply::fill(std::span<std::uint8_t> payload, const Drain& drain,
                            AudioSource& source, CopyStream copyStream, std::uint8_t silence) {
    int emptyBlocks = 0;
    while (!payload.empty()) {
        if (streamPos_ < stream_.size) {
            const std::uint64_t count =
                std::min<std::uint64_t>(payload.size(), stream_.size - streamPos_);
            copyStream(payload.data(), stream_.data + streamPos_, count);
            streamPos_ += count;
            payload = payload.subspan(count);
            continue;
        }
        const bool wantsAudio = source.isPlaying() && !drain.takesNoAudio();
        if (wantsAudio && emptyBlocks < mostEmptyBlocks && fetch(source)) {
            // A block without a byte leads to another call at once, but not for ever.
            if (stream_.size == 0) ++emptyBlocks;
            continue;
        }

        streamPos_ = stream_.size;
        if (wantsAudio && !source.isDisconnecting()) return Filled::starved;
        std::fill(payload.begin(), payload.end(), silence);
        if (wantsAudio) return Filled::closingFinal;
        return source.isDisconnecting() && !drain.hasBegun() ? Filled::closingDisconnect
                                                             : Filled::whole;
    }
    return Filled::whole;
}

bool Supply::takeFetched() noexcept {
    return std::exchange(fetched_, false);
}

bool Supply::fetch(AudioSource& source) {
    fetched_ = true;
    streamPos_ = 0;
    return source.getNewStream(stream_);
}

}  // namespace VELMORA
