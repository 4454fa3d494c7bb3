// Reads a source ahead on a thread of its own, so that the host's callback finds its audio in
// memory.
//
// The ring holds about a second. A callback that comes before its audio waits for it: a gap would
// be worse than a late buffer.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

#include "apps/velmora-play/Source.h"

namespace velmora_play {

class Prefetch {
public:
    explicit Prefetch(Source& source);
    ~Prefetch();
    Prefetch(const Prefetch&) = delete;
    Prefetch& operator=(const Prefetch&) = delete;

    // As Source's: whole frames, 0 at the end. Any one thread.
    std::uint64_t takePcm(std::span<double> samples);
    std::uint64_t takeDsd(std::span<std::uint8_t> bytes);

private:
    void read();
    template <class T>
    std::uint64_t take(std::vector<T>& ring, std::span<T> out);

    Source& source_;
    const std::uint32_t channels_;
    std::vector<double> pcm_;  // one of the two rings is used
    std::vector<std::uint8_t> dsd_;
    std::mutex mutex_;                        // guards all below
    std::condition_variable changed_;         // something was read or taken, or stop was asked for
    std::uint64_t readAt_ = 0, takenAt_ = 0;  // values ever read and taken
    bool ended_ = false, stop_ = false;
    std::thread thread_;
};

}  // namespace velmora_play
