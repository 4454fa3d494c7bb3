// DSF files: one-bit audio as the published "DSF File Format Specification" 1.01 lays it out.
//
//   "DSD "  u64 28   u64 size of the file   u64 place of the metadata, 0 for none
//   "fmt "  u64 52   u32 version 1   u32 format 0   u32 channel type   u32 channels   u32 rate
//                    u32 bits: 1 oldest sample in bit 0, 8 in bit 7   u64 samples a channel
//                    u32 block 4096   u32 0
//   "data"  u64 12 + n   n bytes: a block of 4096 bytes of each channel in turn, the last ones
//                        filled up with zero
//
// All numbers are little-endian. Whoever uses these classes sees interleaved bytes: one byte a
// channel in turn, each with its oldest sample in bit 0.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velmora_audio {

// What went wrong, as a text for the user; empty if nothing did.
using Failure = std::string;

struct DsfFormat {
    std::uint32_t channels = 0;    // 1 to 6
    std::uint32_t sampleRate = 0;  // Hz, one-bit samples
    std::uint64_t samples = 0;     // of one channel
};

constexpr std::size_t dsfBlockBytes = 4096;
constexpr std::uint32_t dsfMostChannels = 6;

// Writes a file of any length; what it says of its length is true once it is closed.
class DsfWriter {
public:
    DsfWriter() = default;
    ~DsfWriter() { close(); }
    DsfWriter(const DsfWriter&) = delete;
    DsfWriter& operator=(const DsfWriter&) = delete;

    Failure open(std::string_view utf8Path, std::uint32_t channels, std::uint32_t sampleRate);
    // Any number of bytes; a byte of one channel may come with the next call.
    Failure write(std::span<const std::uint8_t> interleaved);
    Failure close();  // fills the last blocks, puts the lengths in; nothing on a closed file
    bool isOpen() const { return file_.is_open(); }

private:
    void writeHeader();
    void writeBlocks();

    std::ofstream file_;
    DsfFormat format_;
    std::vector<std::uint8_t> blocks_;   // a block of each channel, being filled
    std::size_t filled_ = 0;             // bytes of each channel in it
    std::size_t channel_ = 0;            // that the next byte belongs to
    std::uint64_t bytesPerChannel_ = 0;  // taken so far
    std::uint64_t dataBytes_ = 0;        // in the file
};

class DsfReader {
public:
    Failure open(std::string_view utf8Path);
    const DsfFormat& format() const { return format_; }
    // Bytes of one channel, the last of which may hold fewer than 8 samples.
    std::uint64_t bytesPerChannel() const {
        return format_.samples / 8 + (format_.samples % 8 != 0 ? 1 : 0);
    }
    // Fills `interleaved` as far as whole turns of all channels fit and are left. Gives the bytes;
    // 0 at the end. A file that breaks off ends where it breaks off.
    std::size_t read(std::span<std::uint8_t> interleaved);

private:
    bool readBlocks();

    std::ifstream file_;
    DsfFormat format_;
    bool oldestIsMsb_ = false;
    std::vector<std::uint8_t> blocks_;
    std::size_t at_ = 0, held_ = 0;  // bytes of each channel read from and held in blocks_
    std::uint64_t left_ = 0;         // bytes of each channel not yet in blocks_
};

}  // namespace velmora_audio
