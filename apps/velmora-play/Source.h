// Where the player's audio comes from: a WAV file, a DSF file, or a tone of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace velmora_play {

struct SourceFormat {
    bool isDsd = false;
    std::uint32_t rate = 0;  // Hz: of frames, or of one-bit samples
    std::uint32_t channels = 0;
    std::uint32_t bits = 0;    // 1 for DSD, 64 for floating point of any width
    std::uint64_t frames = 0;  // frames, or one-bit samples of a channel
};

class Source {
public:
    virtual ~Source() = default;
    const SourceFormat& format() const { return format_; }

    // PCM: interleaved samples in -1 .. 1, whole frames; gives the frames, 0 at the end.
    virtual std::uint64_t readPcm(std::span<double> samples) = 0;
    // DSD: one byte a channel, interleaved, eight samples each, the oldest in bit 7; gives the
    // bytes of a channel, 0 at the end.
    virtual std::uint64_t readDsd(std::span<std::uint8_t> bytes) = 0;

protected:
    SourceFormat format_{};
};

// A WAV or DSF file, told apart by its first bytes. Null, with a sentence in `error` that names the
// file, when it cannot be played.
std::unique_ptr<Source> openFile(const std::string& path, std::string& error);

struct Tone {
    double hertz = 1000.0;
    std::uint32_t rate = 44100;
    std::uint32_t channels = 2;
    std::uint32_t bits = 24;  // 16, 24 or 32: the width that the tone is rounded to
    double seconds = 10.0;
};
// A sine 12 dB below full scale; each further channel a fifth above the one before.
std::unique_ptr<Source> makeTone(const Tone& tone);

// Cuts every sample of PCM to its upper `bits` bits, and ends after `seconds` (0: where the source
// does).
std::unique_ptr<Source> limited(std::unique_ptr<Source> source, std::uint32_t bits, double seconds);

}  // namespace velmora_play
