// What a sequence of random calls stands on: a world that sequences share, chance from a seed, one
// driver with a model beside it, and a failure that tells how it came about. AnyOrderTest.cpp has
// the calls.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/driver/DriverRig.h"
#include "tests/driver/HostModel.h"
#include "tests/driver/MovedWorld.h"
#include "wire/StreamMessage.h"

namespace velmora_test {

constexpr std::size_t operationCount = 24;  // of IASIO

// Which operation was called in which state.
using Coverage = std::array<std::array<int, operationCount>, HostModel::stateCount>;

// What sequences share: the network, the target, and a folder for each row of settings.
struct SequenceWorld {
    SharedNetwork network;
    MovedTarget target{network, IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0xaa}, 0, 3)};
    PlainMachine machine;
    std::array<SettingsFolders, settingsCount> folders;
    NumberedHost host{0};
    Coverage coverage{};

    SequenceWorld() {
        for (std::size_t i = 0; i < settingsCount; ++i) {
            SettingsFolders::write(folders[i].settingPath(), settingsRows[i].text);
        }
    }
};

class SequenceStage {
protected:
    SequenceStage(SequenceWorld& world, std::uint32_t seed)
        : world_(world),
          seed_(seed),
          random_(seed),
          settings_(pick(settingsCount)),
          targetRow_(targetRows[pick(std::size(targetRows))]),
          model_(settings_, targetRow_),
          isLive_(oneIn(4)) {
        setUpTarget();
        world_.machine.runsThreads = isLive_;
        driver_ = new AsioVelmora(nullptr, surroundings());
        driver_->AddRef();
        world_.host.onSwitch = [this](std::int32_t half) {
            const Buffers& buffers = *buffers_.load();
            write(buffers, half);
            if (buffers.isCurious) askInside();
        };
    }
    ~SequenceStage() {
        world_.host.onSwitch = nullptr;
        if (fileTouched_) {
            SettingsFolders::write(folders().settingPath(), settingsRows[settings_].text);
        }
    }

    // ---- chance ----
    std::uint32_t pick(std::size_t count) { return static_cast<std::uint32_t>(random_() % count); }
    bool oneIn(std::uint32_t n) { return pick(n) == 0; }
    template <class T, std::size_t n>
    T pickOf(const T (&values)[n]) {
        return values[pick(n)];
    }
    // A place for an answer, or none.
    template <class T>
    T* orNull(T& place) {
        return oneIn(4) ? nullptr : &place;
    }

    // ---- the world ----
    struct Buffers {
        std::vector<ASIOBufferInfo> infos;
        std::size_t bytes;  // of a half
        bool isCurious;     // asks the driver while it fills them
    };

    SettingsFolders& folders() { return world_.folders[settings_]; }

    Surroundings surroundings() {
        return {world_.network,
                world_.machine,
                folders().driverFolder(),
                folders().roamingFolder(),
                [] {},
                [this](const std::string&, const std::function<void()>& onStarted) {
                    if (!programStarts_) return false;
                    onStarted();
                    if (programLeaves_ != HostModel::unchanged) {
                        fileTouched_ = true;
                        SettingsFolders::write(
                            folders().settingPath(),
                            programLeaves_ == HostModel::unreadable
                                ? "\t"
                                : settingsRows[static_cast<std::size_t>(programLeaves_)].text);
                    }
                    return true;
                }};
    }

    void setUpTarget() {
        world_.network.alone([this](FakeNetwork&) {
            StreamTarget& target = world_.target.target;
            target.pcm = StreamTarget::allRates | targetRow_.channelCodes | 0xa00;
            target.dsdLsb = targetRow_.dsdLsb;
            target.dsdMsb = targetRow_.dsdMsb;
        });
        setManner(Manner::answers);
        if (oneIn(4)) changeManner();
    }
    void changeManner() {
        constexpr Manner manners[] = {Manner::answers, Manner::isSilent, Manner::tellsNoLatency};
        setManner(pickOf(manners));
    }
    void setManner(Manner manner) {
        model_.manner = manner;
        if (manner == Manner::isSilent) mayHear_ = false;
        steps_ << (manner == Manner::answers    ? " [answers]"
                   : manner == Manner::isSilent ? " [silent]"
                                                : " [tells no latency]");
        world_.network.alone([&](FakeNetwork&) {
            world_.target.isSilent = manner == Manner::isSilent;
            world_.target.target.silentTo.clear();
            if (manner == Manner::tellsNoLatency) {
                world_.target.target.silentTo = {VELMORA::wire::LATENCY_REQ::id};
            }
        });
    }

    // Buffer worker, and the host before there is one. ASan watches the places.
    static void write(const Buffers& buffers, std::int32_t half) {
        for (const ASIOBufferInfo& info : buffers.infos) {
            std::memset(info.buffers[half], 0x11, buffers.bytes);
        }
    }
    // Without a stream worker a session is over when the test says so, and must be before its end
    // is waited for.
    void endScript() {
        if (!isLive_) driver_->stream().state = VELMORA::Sync::Idle;
    }
    // What hosts ask from inside their callback, on the driver's thread.
    void askInside() {
        ASIOSamples position{};
        ASIOTimeStamp stamp{};
        driver_->getSamplePosition(&position, &stamp);
        double rate = 0;
        driver_->getSampleRate(&rate);
        driver_->getLatencies(nullptr, nullptr);
        driver_->setClockSource(0);
        driver_->outputReady();
    }
    // ---- checks ----
    template <class T>
    void expect(const T& seen, const T& expected, const char* what) {
        if (seen == expected || failed_) return;
        failed_ = true;
        ADD_FAILURE() << what << " is " << seen << ", expected " << expected << "\nseed " << seed_
                      << ", settings " << settings_ << ":" << steps_.str();
    }
    // Nothing is written where the host's place ends.
    struct Text {
        explicit Text(std::size_t size) : bytes(size + 8, '#') {}
        bool isWhole() const { return bytes.compare(bytes.size() - 8, 8, "########") == 0; }
        std::string text() const { return bytes.c_str(); }
        std::string bytes;
    };

    // In whatever state it is, and from whatever thread.
    void release() {
        steps_ << " Release";
        endScript();
        const auto drop = [this] { expect(driver_->Release(), 0u, "the count"); };
        if (oneIn(8)) {
            std::thread(drop).join();
        } else {
            drop();
        }
        expect(moduleObjectCount.load(), 0, "the objects left");
        expect(world_.network.alone([](FakeNetwork& network) { return network.openLinks(); }), 0,
               "the links left open");
    }

    SequenceWorld& world_;
    const std::uint32_t seed_;
    std::mt19937 random_;
    const std::size_t settings_;
    const TargetRow& targetRow_;
    HostModel model_;
    const bool isLive_;  // its threads run
    AsioVelmora* driver_ = nullptr;
    std::ostringstream steps_;
    std::vector<std::unique_ptr<Buffers>> kept_;
    // Of the last createBuffers that was good. The test writes, the driver's worker reads.
    std::atomic<const Buffers*> buffers_{nullptr};
    bool failed_ = false;
    bool mayHear_ = false;  // the stream that was started has a target that answers
    bool programStarts_ = true, fileTouched_ = false;
    int programLeaves_ = HostModel::unchanged;
};

}  // namespace velmora_test
