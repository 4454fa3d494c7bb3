#include "apps/velmora-play/Prefetch.h"

#include <algorithm>

namespace velmora_play {
namespace {

constexpr std::uint64_t blockFrames = 4096;

}  // namespace

Prefetch::Prefetch(Source& source) : source_(source), channels_(source.format().channels) {
    const SourceFormat& format = source.format();
    const std::uint64_t second = format.isDsd ? format.rate / 8 : format.rate;
    const std::uint64_t blocks = std::max<std::uint64_t>(4, second / blockFrames + 1);
    const std::uint64_t size = blocks * blockFrames * channels_;
    if (format.isDsd) {
        dsd_.resize(size);
    } else {
        pcm_.resize(size);
    }
    thread_ = std::thread([this] { read(); });
}

Prefetch::~Prefetch() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Prefetch::read() {
    const bool isDsd = source_.format().isDsd;
    const std::uint64_t size = isDsd ? dsd_.size() : pcm_.size();
    const std::uint64_t block = blockFrames * channels_;
    for (;;) {
        std::uint64_t at = 0, room = 0;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return stop_ || readAt_ - takenAt_ + block <= size; });
            if (stop_) return;
            at = readAt_ % size;
            room = std::min(block, size - at);
        }
        const std::uint64_t frames = isDsd ? source_.readDsd(std::span(dsd_).subspan(at, room))
                                           : source_.readPcm(std::span(pcm_).subspan(at, room));
        const std::lock_guard lock(mutex_);
        readAt_ += frames * channels_;
        ended_ = frames == 0;
        changed_.notify_all();
        if (ended_) return;
    }
}

template <class T>
std::uint64_t Prefetch::take(std::vector<T>& ring, std::span<T> out) {
    std::uint64_t done = 0;
    const std::uint64_t wanted = out.size() / channels_ * channels_;
    std::unique_lock lock(mutex_);
    while (done < wanted) {
        changed_.wait(lock, [&] { return stop_ || ended_ || readAt_ != takenAt_; });
        const std::uint64_t at = takenAt_ % ring.size();
        const std::uint64_t count = std::min({wanted - done, readAt_ - takenAt_, ring.size() - at});
        if (count == 0) break;
        std::copy_n(ring.begin() + static_cast<std::ptrdiff_t>(at), count,
                    out.begin() + static_cast<std::ptrdiff_t>(done));
        takenAt_ += count;
        done += count;
        changed_.notify_all();
    }
    return done / channels_;
}

std::uint64_t Prefetch::takePcm(std::span<double> samples) {
    return take(pcm_, samples);
}
std::uint64_t Prefetch::takeDsd(std::span<std::uint8_t> bytes) {
    return take(dsd_, bytes);
}

}  // namespace velmora_play
