// A sound device as this target sees it: the few calls that playing takes. The body is the
// system's sound library; tests have one with a script.
//
// Counts are frames of the device. A call that fails gives a negated number of <cerrno>: -EPIPE
// for a device that ran dry and stopped, -ESTRPIPE for one that was suspended, -EAGAIN for "not
// now", -ENODEV for one that was taken away. No call waits but sleep.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace velmora_target {

// How samples lie in the device's frames. Integers are little-endian and signed; s24in4 has its
// 24 bits in the lower three bytes. Of DSD the oldest sample is the highest bit; the number is the
// word's bits, "big" has its oldest byte first.
enum class PcmFormat {
    s8,
    s16,
    s24in3,
    s24in4,
    s32,
    float32,
    float64,
    dsd8,
    dsd16Little,
    dsd16Big,
    dsd32Little,
    dsd32Big,
};

struct PcmShape {
    PcmFormat format = PcmFormat::s16;
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;  // frames a second
    bool operator==(const PcmShape&) const = default;
};

struct PcmTimes {
    std::uint32_t bufferMicros = 40'000;  // that the device is to hold
    std::uint32_t periodMicros = 10'000;  // in steps of which it may tell how far it is
    bool operator==(const PcmTimes&) const = default;
};

struct PcmRoom {
    std::uint64_t bufferFrames = 0, periodFrames = 0;
};

class PcmDevice {
public:
    virtual ~PcmDevice() = default;

    virtual int open() = 0;
    virtual bool takes(const PcmShape& shape) = 0;  // open, not set up
    // Leaves it prepared: it takes frames, and plays none of them before start.
    virtual int setUp(const PcmShape& shape, const PcmTimes& times, PcmRoom& granted) = 0;
    virtual int prepare() = 0;  // after it ran dry: empty, as after setUp
    virtual int start() = 0;
    virtual int resume() = 0;         // after -ESTRPIPE
    virtual std::int64_t room() = 0;  // that it would take
    virtual std::int64_t write(const std::uint8_t* frames, std::size_t count) = 0;  // how many
    virtual int drain() = 0;  // no more comes: 0 once all is played, -EAGAIN until then
    virtual void close() = 0;

    virtual void sleep(std::uint64_t micros) = 0;
    // Which devices there are instead, for who named one that is not: "hw:0 (its name)" ...
    virtual std::string others() = 0;
};

using MakePcmDevice = std::function<std::unique_ptr<PcmDevice>(const std::string& name)>;

}  // namespace velmora_target
