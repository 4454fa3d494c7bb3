// Reads WAV and RF64 files: integer PCM of 8 to 32 bits and floating point of 32 and 64, plain or
// extensible. Layout: "Multimedia Programming Interface and Data Specifications 1.0" (RIFF WAVE),
// EBU Tech 3306 (RF64).
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

namespace velmora_audio {

struct WavFormat {
    std::uint32_t rate = 0;      // Hz
    std::uint32_t channels = 0;  // 1 to 64
    std::uint32_t bits = 0;      // of the container: 8, 16, 24, 32, 64
    bool isFloat = false;
    // As the header claims, no more than the file holds; all of the rest where the header does not
    // know (a size of 0xffffffff) or was never completed (a size of 0 in a whole that ends there).
    std::uint64_t frames = 0;
};

class WavFile {
public:
    // False, with error() in words, for a file that is missing, no WAV, or of a format not read
    // here. The file's name is not in those words.
    bool open(const std::string& path);  // UTF-8
    const WavFormat& format() const { return format_; }
    const std::string& error() const { return error_; }

    // Whole frames as numbers in -1 .. 1 (exact: an integer of n bits over 2^(n-1)), interleaved.
    // Gives the frames read; 0 at the end.
    std::uint64_t read(std::span<double> samples);
    bool seek(std::uint64_t frame);  // from the start

private:
    bool fail(const std::string& why);
    bool readHeader();
    bool readFormat(std::span<const char> body);  // of the chunk "fmt "
    std::uint64_t frameBytes() const;

    std::ifstream file_;
    WavFormat format_{};
    std::uint64_t dataAt_ = 0;  // offset of the first frame
    std::uint64_t next_ = 0;    // frame to read next
    std::string raw_;           // bytes of the last read
    std::string error_;
};

}  // namespace velmora_audio
