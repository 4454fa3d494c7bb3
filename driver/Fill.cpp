// The path of the samples, from the host's half buffers into a block of the ring. It runs on the
// buffer worker, at the pace at which the ring empties, and allocates nothing.
#include <algorithm>

#include "driver/AsioVelmora.h"

// Before there is a worker.
void AsioVelmora::planFill() {
    FillPlan plan;
    plan.row = &chooseInterleave(
        {sampleBytes_, settings_.pcmConvertS32, pcmFormatBit_, dsdMode_, stream_.hostFormat});
    plan.halfBytes = static_cast<std::size_t>(bufferBytes_);
    plan.channels = static_cast<std::size_t>(activeChannels_);
    if (dsdMode_) {
        plan.positions = std::int64_t{bufferBytes_} * 8;
    } else if (sampleBytes_ != 0) {
        plan.positions = bufferBytes_ / sampleBytes_;
    }
    for (std::size_t c = 0; c < plan.channels; ++c) plan.buffers[c] = channelBuffers_[c].get();
    fillPlan_ = plan;
}

void AsioVelmora::fillStream(ZENNO::Bytes& block) noexcept {
    fillThread_.store(std::this_thread::get_id(), std::memory_order_release);
    if (running_.load(std::memory_order_acquire)) {
        const ASIOCallbacks* callbacks = callbacks_.load(std::memory_order_acquire);
        if (callbacks != nullptr) callHost(*callbacks);
    }

    const FillPlan& plan = fillPlan_;
    samplePosition_.fetch_add(plan.positions, std::memory_order_release);
    // The half that goes out is the one that the host filled on the call before this one.
    bufferIndex_ ^= 1;
    if (plan.row == nullptr || plan.channels == 0) return;

    const std::size_t offset = bufferIndex_ != 0 ? plan.halfBytes : 0;
    std::array<const std::uint8_t*, mostChannels> halves{};
    for (std::size_t c = 0; c < plan.channels; ++c) halves[c] = plan.buffers[c] + offset;
    // Buffer and block agree, unless the host has changed rate or format between createBuffers and
    // start: then the shorter of the two rules.
    const std::size_t samples =
        std::min(plan.halfBytes / plan.row->sourceBytes,
                 block.size() / (plan.row->destinationBytes * plan.channels));
    plan.row->run(block.data(), halves.data(), plan.channels, samples);
}

void AsioVelmora::callHost(const ASIOCallbacks& callbacks) noexcept {
    // Hosts exist that say that they take time info and leave that entry null, or give no other.
    // What is there is called.
    const bool timeInfo = timeInfoMode_ ? callbacks.bufferSwitchTimeInfo != nullptr
                                        : callbacks.bufferSwitch == nullptr;
    if (!timeInfo) {
        if (callbacks.bufferSwitch != nullptr) callbacks.bufferSwitch(bufferIndex_, ASIOTrue);
        return;
    }
    if (callbacks.bufferSwitchTimeInfo == nullptr) return;

    AsioTimeInfo& info = timeBlock_.timeInfo;
    const std::uint32_t news = pendingTimeFlags_.exchange(0, std::memory_order_acquire);
    info.flags |= news;
    if ((news & kSampleRateChanged) != 0) info.sampleRate = pendingRate_;
    getSamplePosition(&info.samplePosition, &info.systemTime);
    if (timeCodeEnabled_) timeBlock_.timeCode.timeCodeSamples = info.samplePosition;
    callbacks.bufferSwitchTimeInfo(&timeBlock_, bufferIndex_, ASIOTrue);
    info.flags &= ~(kSampleRateChanged | kClockSourceChanged);
}
