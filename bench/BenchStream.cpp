#include "bench/BenchStream.h"

#include <stdexcept>
#include <thread>

namespace velmora_bench {

using VELMORA::SinkConfig;

std::uint32_t WatchedEnvironment::now() noexcept {
    const std::uint32_t time = system_.clock().now();
    if (!begun_.load(std::memory_order_relaxed) && state_ != nullptr &&
        state_->load(std::memory_order_relaxed) == VELMORA::Sync::Connected) {
        begin_ = time;
        begun_.store(true, std::memory_order_release);
    }
    return time;
}

void BenchStream::prepare(const Shape& shape, const ZENNO::IPAddress& to) {
    const std::uint32_t questionsEvery = 100000;  // µs
    sinkConfig = hostFormat = shape.config();
    // Where a host would take larger buffers too: a block lasts some 2.7 ms at the least.
    const std::uint64_t perSecond = std::uint64_t{sinkConfig.rate()} * sinkConfig.bitsPerSample() /
                                    8 / sinkConfig.bytesPerSample();
    while (frames_ * 400 < perSecond) frames_ *= 2;

    if (!open(shape.threadMode, questionsEvery, static_cast<std::uint16_t>(to.scope), "bench", 0) ||
        !configTransferFix(shape.cycle, 0)) {
        throw std::runtime_error("the stream cannot be prepared");
    }
    // open has left the formats alone, and the rows stand on them.
    target = to;
    setupBuffers(frames_, blocks);

    InterleaveFormat format;
    format.sampleBytes = static_cast<std::int32_t>(hostFormat.bytesPerSample());
    format.pcmFormatBit = hostFormat.word & SinkConfig::pcmMask;
    format.dsdMode = hostFormat.isDsd();
    format.hostFormat = hostFormat;
    interleave_ = &chooseInterleave(format);
    halves_.assign(hostFormat.channels(), ZENNO::Bytes(frames_ * interleave_->sourceBytes, 0x55));
    for (std::size_t c = 0; c < halves_.size(); ++c) from_[c] = halves_[c].data();
    watched_.watch(state);
}

void BenchStream::begin() {
    if (!connect() || !connectWait() || !is_connect()) {
        throw std::runtime_error("the stream does not start");
    }
    play();
    while (!streamThread.isKnown() || !bufferThread.isKnown() || !watched_.hasBegun()) {
        if (!is_connect()) throw std::runtime_error("the stream has ended by itself");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// The first turn comes half a cycle behind its place in the grid, so the second is due half a cycle
// behind the first.
std::int64_t BenchStream::secondDueNanos() const {
    const std::int64_t micros = clockNanos(CLOCK_MONOTONIC) / 1000;
    const std::uint32_t ago = static_cast<std::uint32_t>(micros) - watched_.begin();
    const std::int64_t begin = (micros - ago) * 1000;
    return begin + std::int64_t{cycle()} * 1000 / 2 + stampOffsetNanos();
}

void BenchStream::fillStream(ZENNO::Bytes& block, bool) {
    if (!bufferThread.isKnown()) {
        bufferThread.note(/*countMisses=*/false);
        if (onBufferWorker) onBufferWorker();
    }
    interleave_->run(block.data(), from_.data(), halves_.size(), frames_);
}

bool BenchStream::getNewStream(VELMORA::StreamRef& out) {
    if (!streamThread.isKnown()) {
        streamThread.note(countsMisses);
        if (onStreamWorker) onStreamWorker();
    }
    return SyncBuffer::getNewStream(out);
}

Run runProduct(const Shape& shape, double seconds, const std::string& space) {
    Receiver receiver(space);
    Run run;
    {
        WatchedEnvironment environment;
        BenchStream stream(environment);
        stream.countsMisses = true;
        stream.prepare(shape, receiver.ipAddress());
        run.cycle = stream.cycle();
        stream.begin();
        const NotedThread &sender = stream.streamThread, &filler = stream.bufferThread;
        run.scheduling = sender.scheduling();

        const auto pause = std::chrono::duration<double>(seconds);
        std::this_thread::sleep_for(pause / 8);  // not measured for its costs
        const std::int64_t begin = clockNanos(CLOCK_MONOTONIC);
        const std::int64_t worker = sender.cpuNanos();
        const std::int64_t process = clockNanos(CLOCK_PROCESS_CPUTIME_ID);
        const std::int64_t misses = sender.cacheMisses();
        const ThreadCounts sent = sender.counts(), filled = filler.counts();
        std::this_thread::sleep_for(pause);
        run.workerCpu = static_cast<double>(sender.cpuNanos() - worker) * 1e-9;
        run.processCpu = static_cast<double>(clockNanos(CLOCK_PROCESS_CPUTIME_ID) - process) * 1e-9;
        run.seconds = static_cast<double>(clockNanos(CLOCK_MONOTONIC) - begin) * 1e-9;
        if (misses >= 0) run.cacheMisses = sender.cacheMisses() - misses;
        run.streamAllocations = sender.counts().allocations - sent.allocations;
        run.streamLocks = sender.counts().locks - sent.locks;
        run.bufferAllocations = filler.counts().allocations - filled.allocations;
        run.bufferLocks = filler.counts().locks - filled.locks;
        run.secondDue = stream.secondDueNanos();
        if (!stream.is_connect()) throw std::runtime_error("the stream has ended by itself");
    }
    run.seen = receiver.finish();
    return run;
}

}  // namespace velmora_bench
