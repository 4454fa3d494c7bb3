// A SyncBuffer whose stream worker is the test: it takes the blocks by hand, and moves the state.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "sync/SyncBuffer.h"
#include "tests/support/FakeNetwork.h"
#include "tests/support/LogCapture.h"

namespace velmora_test {

using VELMORA::SinkConfig;
using VELMORA::StreamRef;
using VELMORA::Sync;
using VELMORA::SyncBuffer;

// Waits for what another thread is about to do; the limit is for a broken build alone.
inline bool eventually(const std::function<bool()>& happens) {
    // By the clock, for a sleep as short as this takes no time at all on some systems.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end) {
        if (happens()) return true;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return happens();
}

// A door that fillStream stands before; open at first.
class Gate {
public:
    void shut() {
        const std::lock_guard lock(mutex_);
        open_ = false;
    }
    void open() {
        {
            const std::lock_guard lock(mutex_);
            open_ = true;
        }
        opened_.notify_all();
    }
    void pass() {
        std::unique_lock lock(mutex_);
        opened_.wait(lock, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = true;
};

class TestBuffer : public SyncBuffer {
public:
    using SyncBuffer::SyncBuffer;
    ~TestBuffer() override {
        gate.open();
        closeSession();
    }

    bool startWorker() override { return workerStarts; }
    bool startBufferWorker() override {
        return bufferWorkerStarts && SyncBuffer::startBufferWorker();
    }
    void fillStream(Bytes& block, bool kicked) override {
        begun.fetch_add(1);
        gate.pass();
        {
            const std::lock_guard lock(mutex_);
            kicks_.push_back(kicked);
            sizes_.push_back(block.size());
        }
        const auto number = static_cast<std::uint8_t>(done.load() + 1);
        std::fill(block.begin(), block.end(), number);
        done.fetch_add(1);
    }

    std::vector<bool> kicks() const {
        const std::lock_guard lock(mutex_);
        return kicks_;
    }
    std::vector<std::uint64_t> sizes() const {
        const std::lock_guard lock(mutex_);
        return sizes_;
    }

    bool workerStarts = true, bufferWorkerStarts = true;
    Gate gate;
    std::atomic<int> begun{0}, done{0};  // fills; fill number n (from 1) writes the byte n

private:
    mutable std::mutex mutex_;
    std::vector<bool> kicks_;
    std::vector<std::uint64_t> sizes_;
};

inline SinkConfig bufferFormat(std::uint64_t sample, std::uint32_t rate, std::uint32_t channels) {
    SinkConfig config(sample);
    EXPECT_TRUE(config.setRate(rate));
    EXPECT_TRUE(config.setChannels(channels));
    return config;
}

// 44100 Hz, stereo, 32 bits: 8 bytes a frame, 3528 bytes in 10 ms.
struct BufferTest : testing::Test {
    BufferTest() {
        buffer.hostFormat = bufferFormat(SinkConfig::pcm32, 44100, 2);
        buffer.sinkConfig = buffer.hostFormat;
    }

    FakeNetwork network;
    LogCapture log;
    TestBuffer buffer{network};
};

}  // namespace velmora_test
