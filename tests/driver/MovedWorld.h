// A driver with its real threads on moved time: the network in memory and its clock serve one
// thread after the other, and a wait of any of them moves the time for all. A whole session, from
// init to the last join, takes about a millisecond, and what its threads do to each other is real.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "driver/AsioVelmora.h"
#include "tests/driver/StreamTarget.h"
#include "tests/support/FakeNetwork.h"

namespace velmora_test {

class SharedNetwork final : public ZENNO::Environment {
public:
    SharedNetwork();
    ~SharedNetwork() override;

    // Nobody else is on the network while `what` runs: for whatever a test changes there.
    template <class What>
    auto alone(What&& what) {
        const std::lock_guard lock(mutex_);
        return what(network_);
    }

    ZENNO::Clock& clock() noexcept override;
    std::unique_ptr<ZENNO::Link> makeLink() override;
    bool localAddressesV6(ZENNO::LocalInterfaceMap& out) override;

private:
    class SharedClock;
    class SharedLink;

    std::mutex mutex_;  // over the network and its time
    FakeNetwork network_;
    std::unique_ptr<SharedClock> clock_;
};

// A StreamTarget that answers on a SharedNetwork. It hears audio, and keeps none.
class MovedTarget {
public:
    MovedTarget(SharedNetwork& network, const IPAddress& address);
    ~MovedTarget();

    // The two below are the network's: change them inside SharedNetwork::alone.
    StreamTarget target;
    bool isSilent = false;

    std::function<void(std::span<const std::uint8_t>)> onAudio;  // set before a stream starts

private:
    class Port;
    SharedNetwork& network_;
    std::vector<std::unique_ptr<Port>> ports_;
};

// Threads as the system gives them, without priorities; or, for a session that is only scripted,
// threads that end at once and have done nothing.
class PlainMachine final : public VELMORA::Machine {
public:
    bool runsThreads = true;

    std::int32_t physicalCoreCount() noexcept override { return 4; }
    std::uint32_t processPriorityClass() noexcept override { return 32; }
    bool setThreadPriority(ZENNO::platform::Priority) noexcept override { return true; }
    bool setThreadAffinity(std::uint64_t) noexcept override { return true; }
    bool setProcessAffinity(std::uint64_t) noexcept override { return true; }
    std::thread startThread(std::function<void()> entry) override {
        if (!runsThreads) return std::thread([] {});
        return std::thread(std::move(entry));
    }
};

// One of several hosts of a process: its callbacks are plain functions, and know it by its number.
class NumberedHost {
public:
    static constexpr std::size_t most = 2;

    explicit NumberedHost(std::size_t number);
    ~NumberedHost();
    NumberedHost(const NumberedHost&) = delete;
    NumberedHost& operator=(const NumberedHost&) = delete;

    ASIOCallbacks callbacks() const;  // all four

    // Before createBuffers.
    std::int32_t supportsTimeInfo = 0;
    std::function<void(std::int32_t half)> onSwitch;  // in either of the two switches

    std::atomic<int> rateChanges{0};  // calls of sampleRateDidChange
    std::atomic<int> questions{0};    // calls of asioMessage

    int switches() const;
    // Until the host has been asked so often; false when it gives up.
    bool waitForSwitches(int count);

private:
    struct Entries;
    void switched(std::int32_t half);

    const std::size_t number_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int switches_ = 0;
};

}  // namespace velmora_test
