// A sound device with a clock of its own, in a test's time: plays what it is given at its own pace,
// tells where it is in steps, and goes wrong when it is told to.
#pragma once

#include <algorithm>
#include <cerrno>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/BufferCS.h"
#include "target/PcmDevice.h"

namespace velmora_test {

// 48 frames of 4 bytes, a millisecond, each with its own number.
inline ZENNO::Bytes millisecond(unsigned number) {
    ZENNO::Bytes audio(192);
    for (std::size_t i = 0; i < audio.size(); ++i) {
        audio[i] = static_cast<std::uint8_t>(1 + (number * 7 + i) % 255);
    }
    return audio;
}

using velmora_target::PcmFormat;
using velmora_target::PcmRoom;
using velmora_target::PcmShape;
using velmora_target::PcmTimes;

// What stands behind a name: outlives all who open it.
struct PcmStage {
    // How it is made.
    std::set<PcmFormat> formats{PcmFormat::s16, PcmFormat::s32};
    std::function<bool(const PcmShape&)> takes;  // instead, if there is one
    double ppm = 0;
    std::uint64_t step = 1;    // frames
    bool playsAtOnce = false;  // it has no clock
    bool countsOnlyRunning = false;
    std::size_t mostAtOnce = 0;  // frames that one write takes; 0: all there is room for

    // What goes wrong.
    int openError = 0, setUpError = 0, prepareError = 0;
    std::deque<int> writeErrors;    // of the next writes, 0 for none
    std::deque<int> resumeResults;  // else 0
    bool isGone = false, isSuspended = false, neverEnds = false;

    // What became of it.
    std::uint64_t now = 0;  // µs
    ZENNO::Bytes heard;
    int opened = 0, closed = 0, starts = 0, dry = 0;
    std::uint64_t slept = 0;
    PcmShape shape;
    PcmTimes times;
};

class ScriptedPcm final : public velmora_target::PcmDevice {
public:
    explicit ScriptedPcm(PcmStage& stage) : stage_(stage) {}
    ~ScriptedPcm() override { close(); }

    int open() override {
        if (stage_.isGone) return -ENODEV;
        if (stage_.openError != 0) return stage_.openError;
        ++stage_.opened;
        state_ = State::open;
        return 0;
    }
    bool takes(const PcmShape& shape) override {
        return stage_.takes ? stage_.takes(shape) : stage_.formats.contains(shape.format);
    }
    int setUp(const PcmShape& shape, const PcmTimes& times, PcmRoom& granted) override {
        if (stage_.setUpError != 0) return stage_.setUpError;
        static const std::map<PcmFormat, std::size_t> widths{
            {PcmFormat::s8, 1},       {PcmFormat::s16, 2},      {PcmFormat::s24in3, 3},
            {PcmFormat::s24in4, 4},   {PcmFormat::s32, 4},      {PcmFormat::float32, 4},
            {PcmFormat::float64, 8},  {PcmFormat::dsd8, 1},     {PcmFormat::dsd16Little, 2},
            {PcmFormat::dsd16Big, 2}, {PcmFormat::dsd32Big, 4}, {PcmFormat::dsd32Little, 4},
        };
        stage_.shape = shape;
        stage_.times = times;
        frameBytes_ = widths.at(shape.format) * shape.channels;
        buffer_ = std::uint64_t{shape.rate} * times.bufferMicros / 1'000'000;
        granted = {buffer_, std::uint64_t{shape.rate} * times.periodMicros / 1'000'000};
        return prepare();
    }
    int prepare() override {
        if (stage_.isGone) return -ENODEV;
        if (stage_.prepareError != 0) return stage_.prepareError;
        state_ = State::prepared;
        inside_.clear();
        return 0;
    }
    int start() override {
        if (const int error = look(); error != 0) return error;
        if (state_ != State::prepared) return -EBADFD;
        ++stage_.starts;
        state_ = State::running;
        begun_ = stage_.now;
        played_ = 0;
        look();
        return 0;
    }
    int resume() override {
        int result = 0;
        if (!stage_.resumeResults.empty()) {
            result = stage_.resumeResults.front();
            stage_.resumeResults.pop_front();
        }
        if (result != -EAGAIN) stage_.isSuspended = false;
        return result;
    }
    std::int64_t room() override {
        if (const int error = look(); error != 0) return error;
        if (stage_.countsOnlyRunning && state_ != State::running) {
            return static_cast<std::int64_t>(buffer_);
        }
        return static_cast<std::int64_t>(buffer_ - inside_.size() / frameBytes_);
    }
    std::int64_t write(const std::uint8_t* frames, std::size_t count) override {
        if (!stage_.writeErrors.empty()) {
            const int error = stage_.writeErrors.front();
            stage_.writeErrors.pop_front();
            if (error == -EPIPE) runDry();
            if (error != 0) return error;
        }
        if (const int error = look(); error != 0) return error;
        std::size_t taken = std::min<std::size_t>(count, buffer_ - inside_.size() / frameBytes_);
        if (stage_.mostAtOnce != 0) taken = std::min(taken, stage_.mostAtOnce);
        if (taken == 0) return -EAGAIN;
        inside_.insert(inside_.end(), frames, frames + taken * frameBytes_);
        look();
        return static_cast<std::int64_t>(taken);
    }
    int drain() override {
        const int error = look();
        if (error != 0 && error != -EPIPE) return error;
        return stage_.neverEnds || !inside_.empty() ? -EAGAIN : 0;
    }
    void close() override {
        if (state_ != State::closed) ++stage_.closed;
        state_ = State::closed;
    }
    void sleep(std::uint64_t micros) override {
        stage_.slept += micros;
        stage_.now += micros;
    }
    std::string others() override { return "hw:7 (another)"; }

private:
    enum class State { closed, open, prepared, running, dry };

    void runDry() {
        state_ = State::dry;
        inside_.clear();
        ++stage_.dry;
    }
    // Plays until now.
    int look() {
        if (stage_.isGone) return -ENODEV;
        if (stage_.isSuspended) return -ESTRPIPE;
        if (state_ == State::dry) return -EPIPE;
        if (state_ != State::running) return 0;
        const double exact = static_cast<double>(stage_.now - begun_) * stage_.shape.rate *
                             (1 + stage_.ppm * 1e-6) / 1e6;
        const auto due = static_cast<std::uint64_t>(exact) / stage_.step * stage_.step;
        const std::uint64_t held = inside_.size() / frameBytes_;
        const std::uint64_t frames = stage_.playsAtOnce ? held : std::min(held, due - played_);
        const auto end = inside_.begin() + static_cast<std::ptrdiff_t>(frames * frameBytes_);
        stage_.heard.insert(stage_.heard.end(), inside_.begin(), end);
        inside_.erase(inside_.begin(), end);
        const bool wasEnough = stage_.playsAtOnce || due - played_ < held;
        played_ += frames;
        if (wasEnough) return 0;
        runDry();
        return -EPIPE;
    }

    PcmStage& stage_;
    State state_ = State::closed;
    std::size_t frameBytes_ = 1;
    std::uint64_t buffer_ = 0, begun_ = 0, played_ = 0;
    ZENNO::Bytes inside_;
};

}  // namespace velmora_test
