#include "target/DeviceOutput.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <system_error>
#include <tuple>
#include <utility>

#include "target/OutputChoice.h"

namespace velmora_target {

using VELMORA::SinkConfig;
using VELMORA::wire::ConstBytes;

namespace {

constexpr std::uint64_t waitStep = 2'000;      // µs
constexpr std::uint64_t patience = 1'000'000;  // µs, for a device that does not come to its end
constexpr std::size_t mostSent = 1 << 16;      // bytes that are kept for nothing
constexpr int mostHealings = 3;                // of one attempt to write

std::string textOf(std::int64_t error) {
    return std::generic_category().message(static_cast<int>(-error));
}

std::string textOf(SinkConfig format) {
    return std::string(sampleFormatName(format)) + ", " + std::to_string(format.channels()) +
           " channels, " + std::to_string(format.rate()) + " Hz";
}

std::string nameOf(const std::string& device) {
    return std::string(alsaPrefix) + device;
}

// One sentence, and what to do.
std::string openFailure(const std::string& name, int error, PcmDevice& device) {
    switch (-error) {
        case EBUSY:
        case EAGAIN:
            return nameOf(name) + " is in use; end the program that plays on it, or name another " +
                   "device";
        case EACCES:
        case EPERM:
            return nameOf(name) + " is not this user's to play on; add the user to the group audio";
        case ENOENT:
        case ENODEV:
        case ENXIO: {
            const std::string others = device.others();
            return "there is no sound device " + nameOf(name) +
                   (others.empty() ? ", nor any other; is it plugged in, and its driver loaded?"
                                   : "; there are " + others);
        }
        default:
            return nameOf(name) + " cannot be opened (" + textOf(error) +
                   "); name another device, or mend its configuration";
    }
}

}  // namespace

DeviceOutput::DeviceOutput(std::string name, std::unique_ptr<PcmDevice> device,
                           const PcmTimes& times)
    : name_(std::move(name)), device_(std::move(device)), times_(times) {}

DeviceOutput::~DeviceOutput() {
    if (!isOpen_) return;
    close();
    for (std::uint64_t waited = 0; waited < mostWait && stillPlays(0); waited += waitStep) {
        device_->sleep(waitStep);
    }
    if (isOpen_) device_->close();
}

std::string DeviceOutput::where() const {
    return nameOf(name_);
}

std::string DeviceOutput::open(SinkConfig format) {
    const int opened = device_->open();
    if (opened < 0) return openFailure(name_, opened, *device_);
    const auto plan = planFor(format, [this](const PcmShape& s) { return device_->takes(s); });
    const int error = plan ? device_->setUp(plan->shape, times_, room_) : -EINVAL;
    if (error >= 0 && room_.bufferFrames >= plan->framesEach) {
        format_ = format;
        plan_ = *plan;
        wanted_ = room_.bufferFrames - room_.bufferFrames % plan_.framesEach;
        silence_.assign(wanted_ * plan_.frameBytes, plan_.silence);
        given_ = 0;
        isOpen_ = true;
        return {};
    }
    device_->close();
    return where() + " does not take " + textOf(format) +
           (plan ? " (" + textOf(error) + ")" : std::string());
}

bool DeviceOutput::write(ConstBytes frames) {
    if (!isOpen_ || !gone_.empty()) return false;
    convert(format_, plan_, frames, pending_);
    pump();
    return gone_.empty();
}

// Gives the device what it has room for.
void DeviceOutput::pump() {
    int healings = 0;
    while (pending() != 0 && gone_.empty() && !isSuspended_) {
        const std::int64_t done = device_->write(pending_.data() + sent_, pending());
        if (done == 0 || done == -EAGAIN) break;
        if (done > 0) {
            sent_ += static_cast<std::size_t>(done) * plan_.frameBytes;
            given_ += static_cast<std::uint64_t>(done);
        } else if (++healings > mostHealings) {
            fail(done);
        } else {
            heal(done);
        }
    }
    if (sent_ == pending_.size() || sent_ > mostSent) {
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(sent_));
        sent_ = 0;
    }
    startWith(wanted_);
}

// Whether the device can be written to again. A device that ran dry begins anew, empty.
bool DeviceOutput::heal(std::int64_t error) {
    if (error == -EINTR || error == -EAGAIN) return true;
    if (error == -ESTRPIPE) {
        underruns_ += isSuspended_ ? 0 : 1;
        const int resumed = device_->resume();
        isSuspended_ = resumed == -EAGAIN;
        if (isSuspended_) return false;
        if (resumed == 0) return true;  // it goes on where it was
    } else if (error == -EPIPE) {
        ++underruns_;
    } else {
        fail(error);
        return false;
    }
    isRunning_ = false;
    given_ = 0;
    const int prepared = device_->prepare();
    if (prepared < 0) fail(prepared);
    return prepared >= 0;
}

void DeviceOutput::fail(std::int64_t error) {
    gone_ = textOf(error);
}

// Frames of the device that were given to it and not played; what it had no room for is among them.
std::uint64_t DeviceOutput::held() {
    // Not every device counts before it runs.
    if (!isRunning_ && !isSuspended_) return given_ + pending();
    std::int64_t room = device_->room();
    if (room < 0 && heal(room)) room = device_->room();
    const auto most = static_cast<std::int64_t>(room_.bufferFrames);
    const std::int64_t inside = room < 0 ? 0 : most - std::min(room, most);
    return static_cast<std::uint64_t>(inside) + pending();
}

void DeviceOutput::startWith(std::uint64_t least) {
    if (isRunning_ || isSuspended_ || !gone_.empty()) return;
    const std::uint64_t frames = held();
    if (frames == 0 || frames < least) return;
    const int started = device_->start();
    isRunning_ = started >= 0;
    if (!isRunning_) heal(started);
}

std::optional<DeviceFill> DeviceOutput::device() {
    if (!isOpen_ || !gone_.empty()) return std::nullopt;
    pump();
    const std::uint64_t frames = held();
    if (!gone_.empty()) return std::nullopt;
    // A device that has nothing left and runs all the same does not play by any clock.
    if (isRunning_ && !isSuspended_ && frames == 0) return std::nullopt;
    return DeviceFill{frames / plan_.framesEach, wanted_ / plan_.framesEach,
                      std::min(room_.periodFrames, room_.bufferFrames / 2) / plan_.framesEach,
                      underruns_};
}

void DeviceOutput::rest() {
    if (!isOpen_ || !gone_.empty() || isSuspended_) return;
    pump();
    if (pending() != 0) return;
    const std::uint64_t frames = held();
    if (gone_.empty() && !isSuspended_ && frames < wanted_) {
        const std::int64_t done = device_->write(silence_.data(), wanted_ - frames);
        if (done > 0) given_ += static_cast<std::uint64_t>(done);
        if (done < 0 && done != -EAGAIN) heal(done);
    }
    startWith(wanted_);
}

std::string DeviceOutput::close() {
    if (!isOpen_ || isEnding_) return {};
    isEnding_ = true;
    pump();
    startWith(1);
    if (!isRunning_ && !isSuspended_) {  // there is nothing that could be heard
        device_->close();
        isOpen_ = false;
    }
    return {};
}

bool DeviceOutput::stillPlays(std::uint64_t now) {
    if (!isOpen_ || !isEnding_) return false;
    if (deadline_ == 0) {
        deadline_ = now + patience + held() * 1'000'000 / std::max(plan_.shape.rate, 1u);
    }
    pump();
    startWith(1);
    const bool mayGoOn = gone_.empty() && now < deadline_;
    if (mayGoOn && (pending() != 0 || device_->drain() == -EAGAIN)) return true;
    device_->close();
    isOpen_ = false;
    return false;
}

TakenFormats formatsOf(const std::string& name, PcmDevice& device, const FormatMasks& allowed) {
    const int opened = device.open();
    if (opened < 0) return {{}, openFailure(name, opened, device)};
    // The same shape serves several formats, and asking is the dear part.
    std::map<std::tuple<PcmFormat, std::uint32_t, std::uint32_t>, bool> known;
    const auto takes = [&](const PcmShape& shape) {
        const auto [at, isNew] = known.try_emplace({shape.format, shape.channels, shape.rate});
        if (isNew) at->second = device.takes(shape);
        return at->second;
    };
    TakenFormats taken;
    taken.formats = formatsTaken(
        allowed, [&](SinkConfig format) { return planFor(format, takes).has_value(); });
    device.close();
    if (!taken.formats.hasAny()) {
        taken.failure = nameOf(name) + " takes none of the formats that are allowed; see --pcm, " +
                        "--channels, --rates and --dsd, or name another device";
    }
    return taken;
}

}  // namespace velmora_target
