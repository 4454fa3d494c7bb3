// A driver object with everything around it: folders of its own, a network in memory with one
// target, a machine, and a host.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "driver/AsioVelmora.h"
#include "tests/base/TempFolder.h"
#include "tests/driver/StreamTarget.h"
#include "tests/support/FakeNetwork.h"
#include "tests/support/LogCapture.h"

namespace velmora_test {

// The user's files, empty at first.
class SettingsFolders {
public:
    std::string driverFolder() const { return driver_; }
    std::string roamingFolder() const { return roaming_.substr(0, roaming_.size() - 1); }
    std::string userFolder() const { return user_; }
    std::string settingPath() const { return user_ + "setting.inf"; }
    std::string orgPath() const { return driver_ + "setting_org.inf"; }

    static void write(const std::string& path, const std::string& text);
    static std::string read(const std::string& path);  // empty where there is none

private:
    TempFolder root_;
    std::string driver_ = root_.makeFolder(u8"driver");
    std::string roaming_ = root_.makeFolder(u8"roaming");
    std::string user_ = root_.makeFolder(u8"roaming/KORVENTE Velmora");
};

// Threads are refused or kept for the test to run itself; none ever runs by the side of a
// FakeNetwork, which is one thread's.
class TestMachine final : public VELMORA::Machine {
public:
    std::int32_t cores = 4;
    bool refusesThreads = false;
    std::vector<std::function<void()>> entries;  // what the threads would have run

    std::int32_t physicalCoreCount() noexcept override { return cores; }
    std::uint32_t processPriorityClass() noexcept override { return 32; }
    bool setThreadPriority(ZENNO::platform::Priority) noexcept override { return true; }
    bool setThreadAffinity(std::uint64_t) noexcept override { return true; }
    bool setProcessAffinity(std::uint64_t) noexcept override { return true; }
    std::thread startThread(std::function<void()> entry) override {
        if (refusesThreads) throw std::system_error(EAGAIN, std::generic_category());
        entries.push_back(std::move(entry));
        return std::thread([] {});
    }
};

// What a host does in its callbacks. One at a time: callbacks are plain functions.
struct TestHost {
    TestHost();
    ~TestHost();

    std::function<void(std::int32_t index)> onSwitch;
    std::function<void(ASIOTime& time, std::int32_t index)> onSwitchTimeInfo;
    std::function<void(double rate)> onRate;
    std::int32_t supportsTimeInfo = 0;

    ASIOCallbacks callbacks;         // all four set
    std::vector<std::string> calls;  // "asioMessage 7 0", "bufferSwitch 0 1" ...
};

class DriverRig {
public:
    DriverRig() : DriverRig("") {}
    explicit DriverRig(const std::string& settings);  // of the section global
    ~DriverRig();

    FakeNetwork network;
    SettingsFolders folders;
    TestMachine machine;
    StreamTarget target{IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 0xaa}, 0, 3)};
    std::vector<std::string> programsRun;
    bool programStarts = true;
    std::function<bool()> program = [] { return true; };  // what it does
    TestHost host;

    void setSettings(const std::string& text) { folders.write(folders.settingPath(), text); }
    void attachTarget();
    void detachTarget();
    Surroundings surroundings();

    AsioVelmora& driver();  // made at the first use
    void dropDriver();
    bool init() { return driver().init(nullptr) != 0; }
    std::string errorMessage();

    // `channels` outputs from 0 up; the buffers of each are in `buffers`.
    ASIOError createBuffers(std::int32_t channels, std::int32_t frames);
    std::vector<ASIOBufferInfo> buffers;

    // After a start on this rig, whose workers never run: sees the session off.
    void endSession();

private:
    class Port;
    std::vector<std::unique_ptr<Port>> ports_;
    std::unique_ptr<AsioVelmora> driver_;
};

}  // namespace velmora_test
