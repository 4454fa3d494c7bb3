// The object that audio software holds: IASIO on one side, one stream to one target on the other.
//
//   constructor  log, settings         AsioVelmora.cpp
//   init         target, formats       Init.cpp
//   queries, createBuffers, future     Channels.cpp
//   start, stop                        Start.cpp
//   fillStream   the host's callbacks  Fill.cpp
//   controlPanel                       ControlPanel.cpp
//
// The object has no lock: the host's threads take turns, as they do in every ASIO driver. What the
// workers share with them is marked below.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "driver/Asio.h"
#include "driver/Interleave.h"
#include "driver/Settings.h"
#include "driver/SinkConfig.h"
#include "driver/Surroundings.h"
#include "driver/TargetInfo.h"
#include "driver/Unknown.h"
#include "platform/Com.h"
#include "sync/SyncBuffer.h"

class AsioVelmora final : public IASIO, public CUnknown {
public:
    static constexpr std::int32_t mostChannels = 8;

    // The engine, with the driver as the source of its audio.
    class Sync final : public VELMORA::SyncBuffer {
    public:
        Sync(AsioVelmora& driver, ZENNO::Environment& environment)
            : SyncBuffer(environment), driver_(driver) {}
        ~Sync() override;

        void fillStream(Bytes& block, bool kicked) override;

    private:
        AsioVelmora& driver_;

    public:
        std::uint64_t productID = 0;
        std::uint64_t findID = 0;
        std::string driverName;  // what the host shows: the target's name
    };

    explicit AsioVelmora(ZENNO::platform::IUnknown* outer,
                         ZENNO::Environment& environment = ZENNO::systemEnvironment())
        : AsioVelmora(outer, Surroundings::ofThisComputer(environment)) {}
    AsioVelmora(ZENNO::platform::IUnknown* outer, const Surroundings& surroundings);
    ~AsioVelmora() override;

    // IUnknown: the outer unknown's.
    ZENNO::platform::HResult QueryInterface(const ZENNO::platform::Guid& riid, void** ppv) override;
    std::uint32_t AddRef() override;
    std::uint32_t Release() override;
    // Knows driverClassId too, for the IASIO side.
    ZENNO::platform::HResult NonDelegatingQueryInterface(const ZENNO::platform::Guid& riid,
                                                         void** ppv) override;

    // IASIO. No exception leaves any of them.
    ASIOBool init(void* sysHandle) override;
    void getDriverName(char* name) override;
    std::int32_t getDriverVersion() override;
    void getErrorMessage(char* string) override;
    ASIOError start() override;
    ASIOError stop() override;
    ASIOError getChannels(std::int32_t* numInputChannels, std::int32_t* numOutputChannels) override;
    ASIOError getLatencies(std::int32_t* inputLatency, std::int32_t* outputLatency) override;
    ASIOError getBufferSize(std::int32_t* minSize, std::int32_t* maxSize,
                            std::int32_t* preferredSize, std::int32_t* granularity) override;
    ASIOError canSampleRate(ASIOSampleRate sampleRate) override;
    ASIOError getSampleRate(ASIOSampleRate* sampleRate) override;
    ASIOError setSampleRate(ASIOSampleRate sampleRate) override;
    ASIOError getClockSources(ASIOClockSource* clocks, std::int32_t* numSources) override;
    ASIOError setClockSource(std::int32_t reference) override;
    ASIOError getSamplePosition(ASIOSamples* sPos, ASIOTimeStamp* tStamp) override;
    ASIOError getChannelInfo(ASIOChannelInfo* info) override;
    ASIOError createBuffers(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                            std::int32_t bufferSize, ASIOCallbacks* callbacks) override;
    ASIOError disposeBuffers() override;
    ASIOError controlPanel() override;
    ASIOError future(std::int32_t selector, void* opt) override;
    ASIOError outputReady() override;

    // For whoever looks at a driver from inside the house.
    Sync& stream() noexcept { return stream_; }
    const DriverSettings& settings() const noexcept { return settings_; }
    const SettingsFiles& settingsFiles() const noexcept { return files_; }
    std::uint64_t pcmFormatBit() const noexcept { return pcmFormatBit_; }

private:
    // How the buffer worker fills a block; settled by start, before there is a worker, so that
    // nothing that the host changes meanwhile can make block and buffers disagree.
    struct FillPlan {
        const Interleave* row = nullptr;
        std::size_t halfBytes = 0;  // of one channel
        std::size_t channels = 0;
        std::int64_t positions = 0;  // by which samplePosition grows, a block
        std::array<const std::uint8_t*, mostChannels> buffers{};
    };

    // Settings
    bool reloadSettings();

    // Init.cpp
    bool initialise();
    bool findTarget(ZENNO::IPAddress& address, VELMORA::TargetInfo& info);
    bool chooseHostFormat();
    template <std::size_t size>
    bool failInit(const std::string& log, const char (&message)[size]);

    // Channels.cpp
    bool hasDsdFormat() const noexcept;  // what getChannelInfo calls DSD
    ASIOError describeChannel(ASIOChannelInfo& info);
    ASIOError makeBuffers(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                          std::int32_t bufferSize, const ASIOCallbacks* callbacks);
    ASIOError allocateChannels(ASIOBufferInfo* bufferInfos, std::int32_t numChannels,
                               std::int32_t bufferSize);
    void resetTimeBlock();
    ASIOError releaseBuffers();
    void freeChannelBuffers() noexcept;
    ASIOError answerFuture(std::int32_t selector, void* opt);

    // Start.cpp
    ASIOError startStream();
    bool settleFormat(VELMORA::SinkConfig& format);
    bool settleTransfer(std::uint32_t multi);
    bool startWorkers();
    bool startWaitThread();
    void startWait() noexcept;
    bool stopStream();  // false: the buffer worker is still there, since this is its own thread
    bool isStarted() const noexcept { return waitThread_.joinable() || workerLeft_; }

    // Fill.cpp, on the buffer worker but for planFill
    void planFill();
    void fillStream(ZENNO::Bytes& block) noexcept;
    void callHost(const ASIOCallbacks& callbacks) noexcept;

    // ControlPanel.cpp
    ASIOError runControlPanel();

    Surroundings surroundings_;
    Sync stream_;  // second, so that it goes last: what is below may still be told of it

    DriverSettings settings_;
    SettingsFiles files_;

    bool dsdMode_ = false;  // chosen by the host through future
    std::int32_t outputChannels_ = 0;
    std::uint64_t pcmFormatBit_ = 0;
    std::int32_t sampleBytes_ = 0;
    void* sysHandle_ = nullptr;  // of the last init, for that of controlPanel

    // Buffer worker and start write, getSamplePosition reads on any thread.
    std::atomic<std::int64_t> samplePosition_{0};
    // Host's threads alone, but hosts ask for it inside their callbacks as well.
    std::atomic<std::uint32_t> sampleRate_{44100};  // Hz

    // The host may keep its structure on the stack: this is a copy, and the pointer says whether it
    // holds. Host's threads write, buffer worker reads.
    ASIOCallbacks callbackTable_{};
    std::atomic<const ASIOCallbacks*> callbacks_{nullptr};
    // Buffer worker's and the host's callback's; host's threads only while there is no worker.
    // What they want to tell in it meanwhile goes by the two words below, which the worker takes.
    ASIOTime timeBlock_{};
    std::atomic<std::uint32_t> pendingTimeFlags_{0};
    std::atomic<double> pendingRate_{0};

    std::array<std::unique_ptr<std::uint8_t[]>, mostChannels> channelBuffers_;
    std::int32_t bufferBytes_ = 1024;  // one half of one channel
    std::int32_t activeChannels_ = 0;
    FillPlan fillPlan_;             // start writes before there is a worker, which reads
    std::int32_t bufferIndex_ = 0;  // buffer worker's; start writes before there is one
    bool initialised_ = false;
    // Host's threads write, buffer worker reads.
    std::atomic<bool> running_{false};
    bool timeInfoMode_ = false;  // createBuffers writes while there is no worker, which reads
    // Host's threads write, buffer worker reads.
    std::atomic<bool> timeCodeEnabled_{false};
    std::array<char, 128> errorMessage_{};

    // Buffer worker writes, host's threads read, to know a call from inside the callback.
    std::atomic<std::thread::id> fillThread_{};
    // A stop inside the callback has left its worker to the next one. Whoever stops writes, host's
    // threads read.
    std::atomic<bool> workerLeft_{false};
    std::thread waitThread_;
    // start writes these before it makes the wait thread, which reads
    std::uint32_t startTimeUs_ = 0;
    std::uint32_t startDelayUs_ = 0;
};
