#include "apps/velmora-play/Host.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>
#include <utility>

#include "apps/audio/DsdWords.h"

namespace velmora_play {
namespace {

// The interface's callbacks bear no word of whose they are: one host plays at a time.
std::atomic<Host*> playing{nullptr};

constexpr std::uint8_t dsdSilence = 0x96;  // oldest sample in bit 7
constexpr std::int32_t mostChannels = 8;
// The last of the source goes out with the switch behind the one that it was handed over in; a
// driver may hold one half more.
constexpr int shortHalvesAtTheEnd = 4;

void store(std::uint8_t* at, std::uint64_t v, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i) at[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// The upper `bits` bits of full scale, rounded down: what a file's sample is in that width.
// Floating point may hold what is no number; it is silent.
std::int64_t integerOf(double v, int bits) {
    if (std::isnan(v)) return 0;
    const double steps = std::ldexp(1.0, bits - 1);
    return static_cast<std::int64_t>(std::clamp(std::floor(v * steps), -steps, steps - 1.0));
}

// One channel of an interleaved half, as samples of the driver's type.
void writePcm(ASIOSampleType type, std::uint8_t* to, const double* from, std::size_t stride,
              std::size_t frames) {
    for (std::size_t n = 0; n < frames; ++n, from += stride) {
        switch (type) {
            case ASIOSTInt16LSB:
                store(to + 2 * n, static_cast<std::uint64_t>(integerOf(*from, 16)), 2);
                break;
            case ASIOSTInt24LSB:
                store(to + 3 * n, static_cast<std::uint64_t>(integerOf(*from, 24)), 3);
                break;
            case ASIOSTInt32LSB:
                store(to + 4 * n, static_cast<std::uint64_t>(integerOf(*from, 32)), 4);
                break;
            case ASIOSTFloat32LSB:
                store(to + 4 * n, std::bit_cast<std::uint32_t>(static_cast<float>(*from)), 4);
                break;
            case ASIOSTFloat64LSB:
                store(to + 8 * n, std::bit_cast<std::uint64_t>(*from), 8);
                break;
            default:
                break;
        }
    }
}

void writeDsd(ASIOSampleType type, std::uint8_t* to, const std::uint8_t* from, std::size_t stride,
              std::size_t bytes) {
    for (std::size_t n = 0; n < bytes; ++n, from += stride) {
        to[n] = type == ASIOSTDSDInt8LSB1 ? velmora_audio::reverseBits(*from) : *from;
    }
}

// What a type is called, and the bytes of a sample; 0 for a type that is not played. In DSD a byte
// holds eight samples.
struct TypeName {
    ASIOSampleType type;
    const char* name;
    std::size_t bytes;
};
constexpr TypeName typeNames[] = {
    {ASIOSTInt16LSB, "16-bit integer", 2},          {ASIOSTInt24LSB, "24-bit integer", 3},
    {ASIOSTInt32LSB, "32-bit integer", 4},          {ASIOSTFloat32LSB, "32-bit floating point", 4},
    {ASIOSTFloat64LSB, "64-bit floating point", 8}, {ASIOSTDSDInt8MSB1, "DSD, MSB first", 1},
    {ASIOSTDSDInt8LSB1, "DSD, LSB first", 1},
};
const TypeName* typeOf(ASIOSampleType type) {
    for (const TypeName& t : typeNames) {
        if (t.type == type) return &t;
    }
    return nullptr;
}

std::string hertz(std::uint32_t rate) {
    return std::to_string(rate) + " Hz";
}

// Ends what createBuffers began, whatever becomes of the stream: first no callback comes any more,
// then the buffers go.
class Running {
public:
    Running(IASIO& driver, std::function<void()> stop) : driver_(driver), stop_(std::move(stop)) {}
    ~Running() {
        stop_();
        driver_.disposeBuffers();
        playing.store(nullptr, std::memory_order_release);
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

private:
    IASIO& driver_;
    const std::function<void()> stop_;
};

}  // namespace

Host::Host(IASIO& driver, Source& source, Patience patience, Pause pause)
    : driver_(driver), source_(source), patience_(patience), pause_(pause) {}

std::int64_t Host::millisSince(std::chrono::steady_clock::time_point then) const {
    const auto passed = std::chrono::steady_clock::now() - then;
    return std::chrono::duration_cast<std::chrono::milliseconds>(passed).count();
}

Failure Host::refused(ExitCode code, std::string text) const {
    char message[512] = {};  // the interface says 124; not every driver counts
    driver_.getErrorMessage(message);
    message[sizeof message - 1] = '\0';
    if (message[0] != '\0') text += std::string(": ") + message;
    if (std::string_view(".!?").find(text.back()) == std::string_view::npos) text += '.';
    return {code, std::move(text)};
}

std::optional<Failure> Host::openDevice() {
    const SourceFormat& format = source_.format();
    const bool isOpen = driver_.init(nullptr) != ASIOFalse;
    times_.init = millisSince(began_);
    if (!isOpen) {
        return refused(exitInit, "The driver did not open its device");
    }
    char name[64] = {};  // the interface says 32
    driver_.getDriverName(name);
    name[sizeof name - 1] = '\0';
    deviceName_ = name;
    std::int32_t inputs = 0, outputs = 0;
    if (driver_.getChannels(&inputs, &outputs) != ASE_OK || outputs <= 0) {
        return refused(exitInit, "The device has no channels");
    }
    if (format.channels > static_cast<std::uint32_t>(std::min(outputs, mostChannels))) {
        return Failure{exitFormat, "The source has " + std::to_string(format.channels) +
                                       " channels, and the device takes " +
                                       std::to_string(std::min(outputs, mostChannels)) + "."};
    }
    if (format.isDsd) {
        ASIOIoFormat io{};
        io.FormatType = kASIODSDFormat;
        if (driver_.future(kAsioCanDoIoFormat, &io) != ASE_SUCCESS ||
            driver_.future(kAsioSetIoFormat, &io) != ASE_SUCCESS) {
            return Failure{exitFormat, "The device takes no DSD."};
        }
    }
    if (driver_.canSampleRate(format.rate) != ASE_OK) {
        return Failure{exitFormat, "The device cannot play " + hertz(format.rate) +
                                       (format.isDsd ? " of DSD." : ".")};
    }
    if (driver_.setSampleRate(format.rate) != ASE_OK) {
        return Failure{exitFormat,
                       "The driver did not take the rate of " + hertz(format.rate) + "."};
    }
    return std::nullopt;
}

std::optional<Failure> Host::makeBuffers(std::int32_t frames) {
    std::int32_t least = 0, most = 0, preferred = 0, granularity = 0;
    if (driver_.getBufferSize(&least, &most, &preferred, &granularity) != ASE_OK) {
        return refused(exitBuffers, "The driver tells no buffer size");
    }
    if (frames == 0) frames = preferred;
    if (frames <= 0 || frames < least || frames > most) {
        return Failure{exitBuffers, "The driver takes buffers of " + std::to_string(least) +
                                        " to " + std::to_string(most) + " frames, " +
                                        std::to_string(preferred) + " by preference, not of " +
                                        std::to_string(frames) + "."};
    }
    if (source_.format().isDsd && frames < 8) {
        return Failure{exitBuffers, "DSD takes buffers of 8 samples at least, not of " +
                                        std::to_string(frames) + "."};
    }
    const std::uint32_t channels = source_.format().channels;
    callbacks_ = {onBufferSwitch, onRateChanged, onMessage, onBufferSwitchTimeInfo};
    const auto create = [&](std::int32_t size) {
        buffers_.assign(channels, {});
        for (std::uint32_t c = 0; c < channels; ++c)
            buffers_[c].channelNum = static_cast<std::int32_t>(c);
        return driver_.createBuffers(buffers_.data(), static_cast<std::int32_t>(channels), size,
                                     &callbacks_);
    };
    ASIOError error = create(frames);
    if (error != ASE_OK && frames != preferred && preferred > 0) {
        frames = preferred;
        error = create(frames);
    }
    if (error != ASE_OK) {
        return refused(exitBuffers, "The driver made no buffers of " + std::to_string(frames) +
                                        " frames (" + std::to_string(error) + ")");
    }
    frames_ = frames;
    auto failure = chooseType();
    if (failure) driver_.disposeBuffers();
    return failure;
}

std::optional<Failure> Host::chooseType() {
    const SourceFormat& format = source_.format();
    for (std::uint32_t c = 0; c < format.channels; ++c) {
        ASIOChannelInfo info{};
        info.channel = static_cast<std::int32_t>(c);
        if (driver_.getChannelInfo(&info) != ASE_OK || buffers_[c].buffers[0] == nullptr ||
            buffers_[c].buffers[1] == nullptr) {
            return refused(exitBuffers,
                           "The driver has no buffers for channel " + std::to_string(c));
        }
        const TypeName* known = typeOf(info.type);
        if (known == nullptr || (known->bytes == 1) != format.isDsd ||
            (c != 0 && info.type != type_)) {
            return Failure{exitFormat, "The driver wants samples of type " +
                                           std::to_string(info.type) +
                                           ", which this player does not make."};
        }
        type_ = info.type;
    }
    formatText_ = hertz(format.rate) + ", " + std::to_string(format.channels) +
                  (format.channels == 1 ? " channel, " : " channels, ") + typeOf(type_)->name +
                  ", buffers of " + std::to_string(frames_);
    const auto frames = static_cast<std::size_t>(frames_);
    if (format.isDsd) {
        dsd_.assign(frames / 8 * format.channels, dsdSilence);
    } else {
        pcm_.assign(frames * format.channels, 0.0);
    }
    return std::nullopt;
}

std::optional<Failure> Host::play(std::int32_t bufferFrames,
                                  const std::function<bool(const Progress&)>& report) {
    began_ = std::chrono::steady_clock::now();
    times_.began = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    if (auto failure = openDevice()) return failure;
    if (auto failure = makeBuffers(bufferFrames)) return failure;
    const Running running(driver_, [this] {
        const auto called = std::chrono::steady_clock::now();
        const std::int64_t end = millisSince(began_);
        driver_.stop();
        times_.stop = millisSince(called);
        times_.end = end;
    });
    prefetch_.emplace(source_);
    playing.store(this, std::memory_order_release);
    return run(report);
}

std::optional<Failure> Host::run(const std::function<bool(const Progress&)>& report) {
    const auto called = std::chrono::steady_clock::now();
    const bool isStarted = driver_.start() == ASE_OK;
    times_.start = millisSince(called);
    if (!isStarted) {
        Failure failure = refused(exitStart, "The driver did not start the stream");
        failure.text +=
            source_.format().isDsd
                ? " DSD is off in its settings (DSDMSB=enable turns it on), or the target does not "
                  "take this format, or is busy. But for the first, the driver logs the reason "
                  "with Debug=enable in its settings."
                : " The target does not take this format, or is busy. With Debug=enable in its "
                  "settings the driver logs the reason.";
        return failure;
    }
    const auto rateChanged = [this] { return rateChanged_.load(std::memory_order_acquire); };
    std::uint64_t seen = 0;
    auto moved = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!done_.wait_for(lock, patience_.report, [this] { return finished_; })) {
        lock.unlock();
        const bool goesOn = report(progress());
        const std::uint64_t now = switches_.load(std::memory_order_acquire);
        if (now != seen) {
            seen = now;
            moved = std::chrono::steady_clock::now();
        }
        if (!goesOn) return Failure{exitInterrupted, "Interrupted."};
        if (rateChanged()) break;
        if (std::chrono::steady_clock::now() - moved > patience_.stall) {
            return Failure{
                exitLost,
                seen == 0 ? "The driver never asked for audio: the target did not take the stream."
                          : "The driver no longer asks for audio: the target has gone."};
        }
        lock.lock();
    }
    if (lock.owns_lock()) lock.unlock();
    if (rateChanged()) return Failure{exitLost, "The driver changed to another rate."};
    report(progress());
    return std::nullopt;
}

Progress Host::progress() const {
    Progress now;
    const SourceFormat& format = source_.format();
    now.switches = switches_.load(std::memory_order_acquire);
    now.total = static_cast<double>(format.frames) / format.rate;
    now.seconds = static_cast<double>(now.switches) * frames_ / format.rate;
    now.seconds = std::min(now.seconds, now.total);
    ASIOSamples position{};
    ASIOTimeStamp stamp{};
    if (driver_.getSamplePosition(&position, &stamp) == ASE_OK) {
        now.position =
            static_cast<std::int64_t>(static_cast<std::uint64_t>(position.hi) << 32 | position.lo);
    }
    return now;
}

void Host::noteSwitch() {
    const std::int64_t now = millisSince(began_);
    if (times_.firstSwitch < 0) times_.firstSwitch = times_.lastSwitch = now;
    times_.longestGap = std::max(times_.longestGap, now - times_.lastSwitch);
    times_.lastSwitch = now;
    const std::uint64_t frames =
        switches_.load(std::memory_order_relaxed) * static_cast<std::uint64_t>(frames_);
    if (pause_.length.count() > 0 && !paused_ && frames >= pause_.atFrame) {
        paused_ = true;
        std::this_thread::sleep_for(pause_.length);
    }
}

void Host::fill(std::size_t half) {
    noteSwitch();
    const SourceFormat& format = source_.format();
    const std::uint32_t channels = format.channels;
    // In DSD the driver counts samples, and eight of them are a byte.
    const std::size_t units = static_cast<std::size_t>(frames_) / (format.isDsd ? 8 : 1);
    std::uint64_t got = 0;
    if (format.isDsd) {
        got = prefetch_->takeDsd(dsd_);
        std::fill(dsd_.begin() + static_cast<std::ptrdiff_t>(got * channels), dsd_.end(),
                  dsdSilence);
    } else {
        got = prefetch_->takePcm(pcm_);
        std::fill(pcm_.begin() + static_cast<std::ptrdiff_t>(got * channels), pcm_.end(), 0.0);
    }
    for (std::uint32_t c = 0; c < channels; ++c) {
        auto* to = static_cast<std::uint8_t*>(buffers_[c].buffers[half]);
        if (format.isDsd) {
            writeDsd(type_, to, dsd_.data() + c, channels, units);
        } else {
            writePcm(type_, to, pcm_.data() + c, channels, units);
        }
    }
    switches_.fetch_add(1, std::memory_order_release);
    if (got == units) return;
    if (++shortHalves_ == shortHalvesAtTheEnd) {
        const std::lock_guard lock(mutex_);
        finished_ = true;
        done_.notify_all();
    }
}

void Host::onBufferSwitch(std::int32_t half, ASIOBool) {
    if (Host* host = playing.load(std::memory_order_acquire)) host->fill(half == 0 ? 0 : 1);
}

ASIOTime* Host::onBufferSwitchTimeInfo(ASIOTime*, std::int32_t half, ASIOBool direct) {
    onBufferSwitch(half, direct);
    return nullptr;
}

void Host::onRateChanged(ASIOSampleRate rate) {
    Host* host = playing.load(std::memory_order_acquire);
    if (host != nullptr && rate != host->source_.format().rate)
        host->rateChanged_.store(true, std::memory_order_release);
}

std::int32_t Host::onMessage(std::int32_t selector, std::int32_t value, void*, double*) {
    switch (selector) {
        case kAsioSelectorSupported:
            return value == kAsioEngineVersion || value == kAsioSupportsTimeInfo ? 1 : 0;
        case kAsioEngineVersion:
            return 2;
        case kAsioSupportsTimeInfo:
            return 1;
        default:
            return 0;
    }
}

}  // namespace velmora_play
