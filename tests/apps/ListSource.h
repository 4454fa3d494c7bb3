// A source that holds what the test puts into it.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "apps/velmora-play/Source.h"

namespace velmora_test {

class ListSource final : public velmora_play::Source {
public:
    // PCM, interleaved.
    ListSource(std::uint32_t channels, std::vector<double> samples, std::uint32_t rate = 48000)
        : pcm_(std::move(samples)) {
        format_ = {.isDsd = false,
                   .rate = rate,
                   .channels = channels,
                   .bits = 32,
                   .frames = pcm_.size() / channels};
    }
    // DSD: a byte a channel, the oldest sample in bit 7.
    ListSource(std::vector<std::uint8_t> bytes, std::uint32_t channels) : dsd_(std::move(bytes)) {
        format_ = {.isDsd = true,
                   .rate = 2822400,
                   .channels = channels,
                   .bits = 1,
                   .frames = dsd_.size() / channels * 8};
    }
    std::uint64_t readPcm(std::span<double> samples) override { return give(pcm_, samples); }
    std::uint64_t readDsd(std::span<std::uint8_t> bytes) override { return give(dsd_, bytes); }

private:
    template <class T>
    std::uint64_t give(const std::vector<T>& all, std::span<T> out) {
        const std::size_t count = std::min(out.size(), all.size() - at_);
        std::copy_n(all.begin() + static_cast<std::ptrdiff_t>(at_), count, out.begin());
        at_ += count;
        return count / format_.channels;
    }
    std::vector<double> pcm_;
    std::vector<std::uint8_t> dsd_;
    std::size_t at_ = 0;
};

}  // namespace velmora_test
