// What was played beside what the target wrote: is every frame there, in order, bit for bit?
//
// A stream begins and ends with silence that nobody played: both files are compared from their
// first sounding frame on, over the length of what was played; what the target wrote behind that
// must be silence. Samples are compared at the width of the narrower file: a target that takes 16
// bits gets the upper 16.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace velmora_audio {

// A file as frames of numbers. PCM: one number a channel, scaled to -1 .. 1 (exact for every width
// that a file can have). DSD: one byte of eight one-bit samples a channel.
class Frames {
public:
    virtual ~Frames() = default;
    virtual std::uint32_t channels() const = 0;
    virtual std::uint32_t rate() const = 0;  // of PCM frames, or of one-bit samples
    virtual int bits() const = 0;            // 1 DSD, 8 to 32 integer, 64 floating point
    virtual bool isSilence(double v) const = 0;
    // Fills whole frames; gives how many. 0 at the end.
    virtual std::size_t read(std::span<double> samples) = 0;
};

// Throws std::runtime_error with a text for the user.
std::unique_ptr<Frames> openFrames(const std::string& path);

struct Comparison {
    std::uint64_t played = 0;         // frames from the first sounding one on
    std::uint64_t leading = 0;        // silent frames in front of it in what was written
    std::uint64_t wrong = 0;          // frames that differ
    std::uint64_t missing = 0;        // frames that were played and not written
    std::uint64_t trailingNoise = 0;  // sounding frames behind the end
    std::uint64_t firstWrong = 0;     // index among the played
    int bits = 0;                     // width of the comparison; 1 is DSD
    std::uint32_t rate = 0, channels = 0;
    bool exact() const { return played != 0 && wrong == 0 && missing == 0 && trailingNoise == 0; }
};

// Throws std::runtime_error when the two cannot be compared at all (channels, rates, DSD beside
// PCM).
Comparison compare(Frames& played, Frames& written);

}  // namespace velmora_audio
