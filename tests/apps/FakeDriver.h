// An ASIO driver that does as its script says: what each operation answers, and how many buffer
// switches its thread makes. It keeps what the host called and every half that the host filled.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "driver/Asio.h"

namespace velmora_test {

class FakeDriver final : public IASIO {
public:
    // ---- the script ----
    bool inits = true;
    std::string message;  // what getErrorMessage says
    std::int32_t outputs = 2;
    ASIOError channelsAnswer = ASE_OK, canRateAnswer = ASE_OK, setRateAnswer = ASE_OK,
              sizesAnswer = ASE_OK, infoAnswer = ASE_OK, startAnswer = ASE_OK;
    ASIOError canDsd = ASE_SUCCESS, setDsd = ASE_SUCCESS;
    std::int32_t least = 1, most = 4096, preferred = 4;  // 8 or more for types it has no width for
    std::vector<ASIOError> createAnswers;                // of the first calls; then ASE_OK
    std::vector<ASIOSampleType> types{ASIOSTInt32LSB};   // of the channels, the last of all others
    bool givesNoBuffers = false;
    bool usesTimeInfo = false;
    // Switches that its thread makes, and in front of them those that start waits for.
    int switches = 1000, switchesInStart = 0;
    int rateChangesAt = -1;  // in front of this switch
    double changedRate = 0;

    // ---- what became of it ----
    std::vector<std::string> calls;                   // play's thread alone calls
    std::vector<std::vector<std::uint8_t>> channels;  // what was filled, half after half
    std::atomic<int> switchesMade{0};
    std::int32_t bufferSize = 0;

    // As of createBuffers; the host may be gone.
    const ASIOCallbacks& callbacksCopy() const { return copy_; }
    // The first `size` bytes that one channel was given, fewer where there were fewer.
    std::vector<std::uint8_t> written(std::size_t channel, std::size_t size) const {
        auto bytes = channels.at(channel);
        bytes.resize(std::min(size, bytes.size()));
        return bytes;
    }
    bool isSilentBehind(std::size_t channel, std::size_t at, std::uint8_t silence) const {
        const auto& bytes = channels.at(channel);
        return bytes.size() > at &&
               std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(),
                           [silence](std::uint8_t b) { return b == silence; });
    }

    FakeDriver() = default;
    FakeDriver(const FakeDriver&) = delete;
    FakeDriver& operator=(const FakeDriver&) = delete;
    ~FakeDriver() { end(); }

    // ---- IUnknown ----
    ZENNO::platform::HResult QueryInterface(const ZENNO::platform::Guid&, void**) override {
        return ZENNO::platform::E_NOINTERFACE;
    }
    std::uint32_t AddRef() override { return 1; }
    std::uint32_t Release() override { return 1; }

    // ---- IASIO ----
    ASIOBool init(void*) override {
        calls.emplace_back("init");
        return inits ? ASIOTrue : ASIOFalse;
    }
    void getDriverName(char* name) override { std::strcpy(name, "A device"); }
    std::int32_t getDriverVersion() override { return 1; }
    void getErrorMessage(char* string) override { std::strcpy(string, message.c_str()); }
    ASIOError start() override {
        calls.emplace_back("start");
        if (startAnswer != ASE_OK) return startAnswer;
        run(switchesInStart);
        thread_.join();
        run(switches);
        return ASE_OK;
    }
    ASIOError stop() override {
        calls.emplace_back("stop");
        end();
        return ASE_OK;
    }
    ASIOError getChannels(std::int32_t* in, std::int32_t* out) override {
        *in = 0;
        *out = outputs;
        return channelsAnswer;
    }
    ASIOError getLatencies(std::int32_t*, std::int32_t*) override { return ASE_OK; }
    ASIOError getBufferSize(std::int32_t* min, std::int32_t* max, std::int32_t* pre,
                            std::int32_t* granularity) override {
        *min = least;
        *max = most;
        *pre = preferred;
        *granularity = 0;
        return sizesAnswer;
    }
    ASIOError canSampleRate(ASIOSampleRate rate) override {
        calls.push_back("canSampleRate " + std::to_string(static_cast<int>(rate)));
        return canRateAnswer;
    }
    ASIOError getSampleRate(ASIOSampleRate*) override { return ASE_OK; }
    ASIOError setSampleRate(ASIOSampleRate rate) override {
        calls.push_back("setSampleRate " + std::to_string(static_cast<int>(rate)));
        return setRateAnswer;
    }
    ASIOError getClockSources(ASIOClockSource*, std::int32_t*) override { return ASE_OK; }
    ASIOError setClockSource(std::int32_t) override { return ASE_OK; }
    ASIOError getSamplePosition(ASIOSamples* position, ASIOTimeStamp* time) override {
        *position = {1, 2};
        *time = {};
        return ASE_OK;
    }
    ASIOError getChannelInfo(ASIOChannelInfo* info) override {
        const auto channel = static_cast<std::size_t>(info->channel);
        info->type = types[std::min(channel, types.size() - 1)];
        return infoAnswer;
    }
    ASIOError createBuffers(ASIOBufferInfo* infos, std::int32_t count, std::int32_t size,
                            ASIOCallbacks* callbacks) override {
        calls.push_back("createBuffers " + std::to_string(size));
        if (created_ < createAnswers.size() && createAnswers[created_++] != ASE_OK)
            return createAnswers[created_ - 1];
        bufferSize = size;
        callbacks_ = callbacks;  // the pointer alone, as some drivers do
        copy_ = *callbacks;
        halfBytes_ = halfBytes();
        channels.assign(static_cast<std::size_t>(count), {});
        memory_.assign(static_cast<std::size_t>(count),
                       std::vector<std::uint8_t>(2 * halfBytes_, 0xee));
        for (std::int32_t c = 0; c < count; ++c) {
            if (infos[c].isInput != 0 || infos[c].channelNum != c) return ASE_InvalidParameter;
            std::uint8_t* at = memory_[static_cast<std::size_t>(c)].data();
            infos[c].buffers[0] = givesNoBuffers ? nullptr : at;
            infos[c].buffers[1] = givesNoBuffers ? nullptr : at + halfBytes_;
        }
        return ASE_OK;
    }
    ASIOError disposeBuffers() override {
        calls.emplace_back("disposeBuffers");
        memory_.clear();
        return ASE_OK;
    }
    ASIOError controlPanel() override { return ASE_NotPresent; }
    ASIOError future(std::int32_t selector, void* opt) override {
        std::int32_t type = 0;
        std::memcpy(&type, opt, sizeof type);
        calls.push_back((selector == kAsioCanDoIoFormat ? "can format " : "set format ") +
                        std::to_string(type));
        return selector == kAsioCanDoIoFormat ? canDsd : setDsd;
    }
    ASIOError outputReady() override { return ASE_NotPresent; }

private:
    std::size_t halfBytes() const {
        static const std::map<ASIOSampleType, std::size_t> widths = {
            {ASIOSTInt16LSB, 2},   {ASIOSTInt24LSB, 3},   {ASIOSTInt32LSB, 4},
            {ASIOSTFloat32LSB, 4}, {ASIOSTFloat64LSB, 8},
        };
        const auto size = static_cast<std::size_t>(bufferSize);
        const auto width = widths.find(types.front());
        return width != widths.end() ? size * width->second : size / 8;
    }
    void run(int count) {
        thread_ = std::thread([this, count] {
            for (int n = 0; n < count && !ending_.load(std::memory_order_acquire); ++n) oneSwitch();
        });
    }
    void oneSwitch() {
        if (switchesMade == rateChangesAt) callbacks_->sampleRateDidChange(changedRate);
        const int half = switchesMade % 2;
        if (usesTimeInfo) {
            ASIOTime time{};
            callbacks_->bufferSwitchTimeInfo(&time, half, ASIOTrue);
        } else {
            callbacks_->bufferSwitch(half, ASIOTrue);
        }
        for (std::size_t c = 0; c < channels.size(); ++c) {
            const std::uint8_t* from =
                memory_[c].data() + static_cast<std::size_t>(half) * halfBytes_;
            channels[c].insert(channels[c].end(), from, from + halfBytes_);
        }
        ++switchesMade;
    }
    void end() {
        ending_.store(true, std::memory_order_release);
        if (thread_.joinable()) thread_.join();
    }

    std::size_t created_ = 0, halfBytes_ = 0;
    ASIOCallbacks* callbacks_ = nullptr;
    ASIOCallbacks copy_{};
    std::vector<std::vector<std::uint8_t>> memory_;  // of a channel: both halves
    std::atomic<bool> ending_{false};                // set by play's thread, read by its own
    std::thread thread_;
};

}  // namespace velmora_test
