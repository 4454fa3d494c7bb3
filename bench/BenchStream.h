// The driver's engine under observation: the ring of blocks, its worker with a host that costs
// nothing, the stream worker; on the system's own clock and sockets.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/Noted.h"
#include "bench/Shape.h"
#include "driver/Interleave.h"
#include "src/Network/Environment.h"
#include "sync/SyncBuffer.h"

namespace velmora_bench {

// The system's, with an eye on the clock: the first reading of a connected stream is where its grid
// of cycles begins.
class WatchedEnvironment final : public ZENNO::Environment, private ZENNO::Clock {
public:
    ZENNO::Clock& clock() noexcept override { return *this; }
    std::unique_ptr<ZENNO::Link> makeLink() override { return system_.makeLink(); }
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override {
        return system_.localAddressesV6(out);
    }

    void watch(const std::atomic<std::uint32_t>& state) noexcept { state_ = &state; }
    bool hasBegun() const noexcept { return begun_.load(std::memory_order_acquire); }
    std::uint32_t begin() const noexcept { return begin_; }

private:
    std::uint32_t now() noexcept override;
    void sleep(std::uint64_t micros) override { system_.clock().sleep(micros); }
    void yield() noexcept override { system_.clock().yield(); }

    ZENNO::Environment& system_ = ZENNO::systemEnvironment();
    const std::atomic<std::uint32_t>* state_ = nullptr;
    std::uint32_t begin_ = 0;
    std::atomic<bool> begun_{false};
};

class BenchStream final : public VELMORA::SyncBuffer {
public:
    // Called on each worker when it is first seen at work.
    std::function<void()> onStreamWorker, onBufferWorker;
    bool countsMisses = false;

    explicit BenchStream(WatchedEnvironment& environment)
        : SyncBuffer(environment), watched_(environment) {}
    ~BenchStream() override { closeSession(); }

    void prepare(const Shape& shape, const ZENNO::IPAddress& to);  // throws std::runtime_error
    void begin();                                                  // connects and plays
    std::int64_t secondDueNanos() const;                           // CLOCK_REALTIME

    static constexpr std::uint64_t blocks = 6;  // as the driver has it where no setting says else
    std::uint64_t blockFrames() const noexcept { return frames_; }

    NotedThread streamThread, bufferThread;

    void fillStream(ZENNO::Bytes& block, bool kicked) override;
    bool getNewStream(VELMORA::StreamRef& out) override;

private:
    WatchedEnvironment& watched_;
    std::uint64_t frames_ = 512;
    const Interleave* interleave_ = nullptr;
    std::vector<ZENNO::Bytes> halves_;
    std::array<const std::uint8_t*, 16> from_{};
};

}  // namespace velmora_bench
