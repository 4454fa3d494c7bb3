// A driver with its workers running, in real time, against a target in memory. What is asserted is
// which bytes arrive and in which order things happen, never when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "tests/driver/DriverRig.h"
#include "tests/support/LiveNetwork.h"
#include "wire/DiscoveryMessage.h"
#include "wire/StreamMessage.h"

namespace {

using namespace velmora_test;
using testing::ElementsAre;
using VELMORA::SinkConfig;

// The machine as it is, but for the threads that it refuses.
class RefusingMachine final : public VELMORA::Machine {
public:
    int refuseFrom = 0;  // the number of the first that is refused; 0: none is

    std::int32_t physicalCoreCount() noexcept override { return system_.physicalCoreCount(); }
    std::uint32_t processPriorityClass() noexcept override {
        return system_.processPriorityClass();
    }
    bool setThreadPriority(ZENNO::platform::Priority priority) noexcept override {
        return system_.setThreadPriority(priority);
    }
    bool setThreadAffinity(std::uint64_t mask) noexcept override {
        return system_.setThreadAffinity(mask);
    }
    bool setProcessAffinity(std::uint64_t mask) noexcept override {
        return system_.setProcessAffinity(mask);
    }
    std::thread startThread(std::function<void()> entry) override {
        if (++started_ >= refuseFrom && refuseFrom != 0) {
            throw std::system_error(EAGAIN, std::generic_category());
        }
        return system_.startThread(std::move(entry));
    }

private:
    VELMORA::Machine& system_ = VELMORA::systemMachine();
    int started_ = 0;
};

// Writes the numbers 1, 2, 3 ... as samples of 32 bits, the second channel negative.
class LiveRig {
public:
    explicit LiveRig(const std::string& settings = "") {
        folders.write(folders.settingPath(),
                      "TargetAddress=fe80::aa,5000\nTargetPO=1\n"
                      "InfoCycle=10000\n" +
                          settings);
        for (const IPAddress& address : target.addresses()) {
            network.attach(address,
                           [this](const ZENNO::Bytes& data) { return target.answer(data); });
        }
        driver = std::make_unique<AsioVelmora>(
            nullptr,
            Surroundings{network, machine, folders.driverFolder(), folders.roamingFolder(), [] {},
                         [this](const std::string&, const std::function<void()>& onStarted) {
                             onStarted();
                             return program();
                         }});
        host.onSwitch = [this](std::int32_t half) { write(half); };
    }

    bool open(std::int32_t frames = 64, double rate = 44100) {
        if (driver->init(nullptr) == 0) return false;
        driver->setSampleRate(rate);
        frames_ = frames;
        buffers.assign(2, {});
        buffers[1].channelNum = 1;
        return driver->createBuffers(buffers.data(), 2, frames, &host.callbacks) == ASE_OK;
    }
    // Until the host has been asked so often.
    void waitForSwitches(int count) {
        std::unique_lock lock(mutex_);
        switched_.wait(lock, [&] { return switches_ >= count; });
    }
    // The numbers that arrived; 0 where one of the channels disagrees.
    std::vector<std::int32_t> numbersHeard() const {
        const ZENNO::Bytes audio = target.audio();
        std::vector<std::int32_t> numbers;
        for (std::size_t at = 0; at + 8 <= audio.size(); at += 8) {
            std::int32_t left = 0, right = 0;
            std::memcpy(&left, audio.data() + at, 4);
            std::memcpy(&right, audio.data() + at + 4, 4);
            if (left == 0 && right == 0) continue;  // silence before, behind, or in an underrun
            numbers.push_back(right == -left ? left : 0);
        }
        return numbers;
    }

    LiveNetwork network;
    RefusingMachine machine;
    std::function<bool()> program = [] { return false; };
    SettingsFolders folders;
    StreamTarget target{IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0xaa}, 0, 3)};
    TestHost host;
    std::vector<ASIOBufferInfo> buffers;
    std::unique_ptr<AsioVelmora> driver;
    std::function<void(int)> duringSwitch;  // after its numbers are written, with its number

private:
    void write(std::int32_t half) {
        for (std::int32_t i = 0; i < frames_; ++i) {
            ++last_;
            const std::int32_t pair[] = {last_, -last_};
            for (std::size_t c = 0; c < 2; ++c) {
                std::memcpy(static_cast<std::uint8_t*>(buffers[c].buffers[half]) + i * 4, &pair[c],
                            4);
            }
        }
        if (duringSwitch) duringSwitch(switches_ + 1);
        {
            const std::lock_guard lock(mutex_);
            ++switches_;
        }
        switched_.notify_all();
    }

    std::int32_t frames_ = 0, last_ = 0;  // buffer worker's
    std::mutex mutex_;
    std::condition_variable switched_;
    int switches_ = 0;
};

// All of 1 to n in their order, with nothing between them but silence.
void expectCounting(const std::vector<std::int32_t>& numbers, std::size_t atLeast) {
    EXPECT_GE(numbers.size(), atLeast);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], static_cast<std::int32_t>(i + 1)) << "at " << i;
    }
}

TEST(LiveStream, EverySampleArrivesInItsPlace) {
    LiveRig rig;
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(40);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    // What was written on the last two switches may not have gone out.
    expectCounting(rig.numbersHeard(), 38 * 64);
    EXPECT_EQ(rig.target.connectedFormat(), rig.driver->stream().sinkConfig.word);
}

TEST(LiveStream, TheTargetHearsTheSessionInItsOrder) {
    using namespace VELMORA::wire;
    LiveRig rig;
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(2);
    rig.driver->stop();
    EXPECT_THAT(rig.target.ids(), ElementsAre(SINK_REQ::id, FIND_REQ::id, CONFIG_REQ::id,
                                              SUPPORT_REQ::id, SUPPORT_REQ::id, PROFILE_REQ::id,
                                              LATENCY_REQ::id, DATASIZE_REQ::id, CONNECTPRE_REQ::id,
                                              CLIENT_REQ::id, CONNECT_REQ::id, DSICONNECT_REQ::id));
    EXPECT_EQ(rig.driver->stream().state, VELMORA::Sync::Idle);
}

TEST(LiveStream, OpensShortlyAndThenForGood) {
    // As hosts do: buffers, start, stop at once, and all again with the real size.
    LiveRig rig;
    ASSERT_TRUE(rig.open(16));
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    EXPECT_EQ(rig.driver->disposeBuffers(), ASE_OK);
    ASSERT_TRUE(rig.open(64));
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(10);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    ASSERT_EQ(rig.driver->start(), ASE_OK) << "and from a stop without disposing";
    rig.waitForSwitches(20);
    EXPECT_EQ(rig.driver->disposeBuffers(), ASE_OK) << "which stops by itself";
    EXPECT_EQ(rig.target.count(VELMORA::wire::CONNECT_REQ::id), 3);
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 3);
}

TEST(LiveStream, ReleaseWhileItPlaysEndsItFromAnyThread) {
    LiveRig rig;
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(5);
    std::thread other([&] { rig.driver.reset(); });
    other.join();
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 1);
}

TEST(LiveStream, QuestionsWhilePlayingAreAnswered) {
    LiveRig rig("ASIOBufferMulti=enable\n");
    rig.host.supportsTimeInfo = 1;
    rig.host.onSwitchTimeInfo = [&rig](ASIOTime& time, std::int32_t half) {
        EXPECT_EQ(time.timeInfo.flags & 15u, 15u);
        rig.host.onSwitch(half);
    };
    ASSERT_TRUE(rig.open(32, 96000));
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    std::atomic<bool> done{false};
    std::thread curious([&] {
        AsioVelmora& driver = *rig.driver;
        while (!done) {
            ASIOSamples position{};
            ASIOTimeStamp stamp{};
            driver.getSamplePosition(&position, &stamp);
            std::int32_t in = 0, out = 0;
            driver.getLatencies(&in, &out);
            double rate = 0;
            driver.getSampleRate(&rate);
            EXPECT_EQ(rate, 96000.0);
            EXPECT_EQ(driver.canSampleRate(48000), ASE_OK);
            driver.setClockSource(0);
            driver.future(kAsioEnableTimeCodeRead, nullptr);
            driver.outputReady();
            std::this_thread::yield();
        }
    });
    rig.waitForSwitches(30);
    done = true;
    curious.join();
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    expectCounting(rig.numbersHeard(), 28 * 32);
}

TEST(LiveStream, AStopInsideTheCallbackDoesNotTakeTheBuffersAway) {
    LiveRig rig;
    std::atomic<int> answer{1};
    rig.duringSwitch = [&](int count) {
        if (count == 4) answer = rig.driver->disposeBuffers();
    };
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(4);
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 1) << "the session has ended";
    EXPECT_EQ(rig.driver->start(), ASE_NotPresent) << "its worker is still there";
    // It could not wait for itself; the next stop does. ASan watches the buffers.
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    EXPECT_EQ(answer, ASE_OK);
    EXPECT_EQ(rig.driver->disposeBuffers(), ASE_OK);
}

TEST(LiveStream, NewBuffersWhileItPlaysEndItFirst) {
    LiveRig rig;
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(4);
    std::vector<ASIOBufferInfo> fresh(2);
    fresh[1].channelNum = 1;
    EXPECT_EQ(rig.driver->createBuffers(fresh.data(), 2, 64, &rig.host.callbacks), ASE_OK);
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 1);
}

TEST(LiveStream, AControlPanelWhileItPlaysEndsItBeforeTheNewInit) {
    LiveRig rig;
    rig.program = [&rig] {
        rig.folders.write(rig.folders.settingPath(), "TargetAddress=fe80::aa,5000\nTargetPO=1\n");
        return true;
    };
    ASSERT_TRUE(rig.open());
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(4);
    EXPECT_EQ(rig.driver->controlPanel(), 1);
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 1);
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(8);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
}

TEST(LiveStream, ARefusedWaitThreadEndsTheSessionAgain) {
    LiveRig rig;
    rig.machine.refuseFrom = 2;  // the first is the stream worker
    ASSERT_TRUE(rig.open());
    LogCapture log(3);
    EXPECT_EQ(rig.driver->start(), ASE_NotPresent);
    EXPECT_THAT(log.texts(3), ElementsAre("connect error"));
    EXPECT_EQ(rig.target.count(VELMORA::wire::DSICONNECT_REQ::id), 1);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
    rig.machine.refuseFrom = 0;
    EXPECT_EQ(rig.driver->start(), ASE_OK) << "and then there is a thread to be had";
    rig.waitForSwitches(2);
    EXPECT_EQ(rig.driver->stop(), ASE_OK);
}

TEST(LiveStream, SaysNothingOfErrorsWhenAllIsWell) {
    LiveRig rig;
    ASSERT_TRUE(rig.open());
    LogCapture log(5);  // errors and warnings: a stream that is well has none of the first
    ASSERT_EQ(rig.driver->start(), ASE_OK);
    rig.waitForSwitches(10);
    rig.driver->stop();
    EXPECT_THAT(log.texts(3), testing::IsEmpty());
}

}  // namespace
