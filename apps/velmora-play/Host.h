// A small ASIO host: opens a loaded driver, plays one source through it, and stops in order.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "apps/velmora-play/Prefetch.h"
#include "apps/velmora-play/Source.h"
#include "driver/Asio.h"

namespace velmora_play {

// What the program exits with; told in --help.
enum ExitCode : int {
    exitDone = 0,
    exitFault = 1,  // the player's own
    exitUsage = 2,
    exitFile = 3,      // it cannot be read or is of no format that is played here; the log's file
    exitNoDriver = 4,  // no such driver, or it cannot be loaded
    exitInit = 5,      // the driver did not open its device
    exitFormat = 6,    // the device cannot play this rate, format or number of channels
    exitBuffers = 7,   // the driver made no buffers of that size
    exitStart = 8,     // the stream did not start
    exitLost = 9,      // the stream ended while it played
    exitInterrupted = 10  // by the user
};

struct Failure {
    ExitCode code;
    std::string text;
};

struct Progress {
    double seconds = 0, total = 0;  // total 0: not known
    std::uint64_t switches = 0;     // buffer switches so far
    std::int64_t position = 0;      // what getSamplePosition says, frames
};

struct Patience {
    std::chrono::milliseconds report{100};  // between two reports
    std::chrono::milliseconds stall{3000};  // without a buffer switch: the stream is gone
};

// A callback that does not come back for a while, to try a driver with.
struct Pause {
    std::chrono::milliseconds length{0};
    std::uint64_t atFrame = 0;  // of the source; the first half behind it
};

// How long the driver took, in ms; -1 for what never came.
struct Times {
    std::int64_t began = 0;  // since 1970
    std::int64_t init = -1, start = -1, stop = -1;
    // From `began` on: the first and the last buffer switch, and when stop was called.
    std::int64_t firstSwitch = -1, lastSwitch = -1, end = -1;
    std::int64_t longestGap = 0;  // between two switches
};

class Host {
public:
    Host(IASIO& driver, Source& source, Patience patience = {}, Pause pause = {});
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Plays the source to its end, once. `bufferFrames` 0: the size that the driver prefers.
    // `report` is called some ten times a second, and once at the end; it gives false to stop.
    std::optional<Failure> play(std::int32_t bufferFrames,
                                const std::function<bool(const Progress&)>& report);

    const std::string& deviceName() const { return deviceName_; }
    const std::string& formatText() const { return formatText_; }  // both: once play reports
    const Times& times() const { return times_; }                  // once play is over

private:
    std::optional<Failure> openDevice();
    std::optional<Failure> makeBuffers(std::int32_t frames);
    std::optional<Failure> run(const std::function<bool(const Progress&)>& report);
    // Why it is in no state to play: `text`, and what the driver says itself, as a sentence.
    Failure refused(ExitCode code, std::string text) const;
    std::optional<Failure> chooseType();
    Progress progress() const;

    // The driver's thread.
    static void onBufferSwitch(std::int32_t half, ASIOBool direct);
    static ASIOTime* onBufferSwitchTimeInfo(ASIOTime* time, std::int32_t half, ASIOBool direct);
    static void onRateChanged(ASIOSampleRate rate);
    static std::int32_t onMessage(std::int32_t selector, std::int32_t value, void* message,
                                  double* opt);
    void fill(std::size_t half);
    void noteSwitch();
    std::int64_t millisSince(std::chrono::steady_clock::time_point then) const;

    IASIO& driver_;
    Source& source_;
    const Patience patience_;
    const Pause pause_;
    Times times_;  // of the switches: the driver's thread alone, while it lives
    std::chrono::steady_clock::time_point began_{};
    bool paused_ = false;  // the driver's thread alone
    std::optional<Prefetch> prefetch_;
    std::string deviceName_, formatText_;
    std::vector<ASIOBufferInfo> buffers_;
    ASIOCallbacks callbacks_{};  // drivers exist that keep the pointer and not the structure
    ASIOSampleType type_ = 0;
    std::int32_t frames_ = 0;  // of one half; one-bit samples in DSD
    std::vector<double> pcm_;  // one half, interleaved
    std::vector<std::uint8_t> dsd_;
    int shortHalves_ = 0;                     // not full of the source; the driver's thread alone
    std::atomic<std::uint64_t> switches_{0};  // counted by the driver's thread, read by play's
    std::atomic<bool> rateChanged_{false};    // set by any thread of the driver's, read by play's
    std::mutex mutex_;                        // guards finished_
    std::condition_variable done_;
    bool finished_ = false;  // the last of the source has gone through the driver
};

}  // namespace velmora_play
