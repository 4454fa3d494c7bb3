#include "apps/audio/WavFile.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace velmora_audio {
namespace {

constexpr std::uint32_t tagPcm = 1, tagFloat = 3, tagExtensible = 0xfffe;
constexpr std::uint32_t mostChannels = 64;
constexpr std::uint64_t mostFramesAtOnce = 1 << 16;
constexpr std::uint64_t sizeElsewhere = 0xffffffff;  // in "ds64", or nowhere

// What stands behind the tag in the sub-format of an extensible format.
constexpr std::array<char, 14> subFormatTail{0, 0, 0,      0, 0x10, 0,      '\x80',
                                             0, 0, '\xaa', 0, 0x38, '\x9b', 0x71};

std::uint64_t little(const char* at, std::size_t bytes) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        v |= static_cast<std::uint64_t>(static_cast<unsigned char>(at[i])) << (8 * i);
    }
    return v;
}

// An integer of `bytes` bytes, its sign extended, over its full scale.
double integerSample(const char* at, std::uint32_t bytes) {
    if (bytes == 1)
        return (static_cast<int>(static_cast<unsigned char>(*at)) - 128) / 128.0;  // unsigned
    const std::uint64_t raw = little(at, bytes) << (64 - 8 * bytes);
    return std::ldexp(static_cast<double>(static_cast<std::int64_t>(raw) >> (64 - 8 * bytes)),
                      -static_cast<int>(8 * bytes - 1));
}

double floatSample(const char* at, std::uint32_t bytes) {
    if (bytes == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(little(at, 4)));
    return std::bit_cast<double>(little(at, 8));
}

}  // namespace

bool WavFile::fail(const std::string& why) {
    error_ = why;
    format_ = {};
    file_.close();
    return false;
}

bool WavFile::open(const std::string& path) {
    format_ = {};
    next_ = 0;
    error_.clear();
    file_ = std::ifstream(std::filesystem::u8path(path), std::ios::binary);
    if (!file_) return fail("the file cannot be opened");
    return readHeader();
}

bool WavFile::readHeader() {
    file_.seekg(0, std::ios::end);
    const auto fileSize = static_cast<std::uint64_t>(std::max<std::streamoff>(0, file_.tellg()));
    file_.seekg(0);
    std::array<char, 12> riff{};
    if (!file_.read(riff.data(), riff.size())) return fail("the file is too short for a WAV file");
    const bool isRf64 = std::memcmp(riff.data(), "RF64", 4) == 0;
    if ((!isRf64 && std::memcmp(riff.data(), "RIFF", 4) != 0) ||
        std::memcmp(riff.data() + 8, "WAVE", 4) != 0) {
        return fail("the file is no WAV file");
    }
    std::uint64_t riffSize = little(riff.data() + 4, 4);
    std::uint64_t longDataSize = sizeElsewhere;
    std::uint64_t at = riff.size();
    for (;;) {
        std::array<char, 8> head{};
        file_.seekg(static_cast<std::streamoff>(at));
        if (!file_.read(head.data(), head.size())) return fail("the file holds no audio");
        std::uint64_t size = little(head.data() + 4, 4);
        at += head.size();
        const std::uint64_t rest = fileSize - at;
        if (std::memcmp(head.data(), "data", 4) == 0) {
            if (format_.channels == 0) return fail("the file tells its format behind the audio");
            if (size == sizeElsewhere) size = longDataSize;
            // Written into a pipe: nobody knew. And a writer that was interrupted never came back
            // to put its sizes in: the whole claims to end before its audio begins.
            if (size == sizeElsewhere || (size == 0 && riffSize <= at - 8)) size = rest;
            dataAt_ = at;
            format_.frames = std::min(size, rest) / frameBytes();
            return true;
        }
        std::array<char, 40> body{};
        const auto kept = static_cast<std::size_t>(std::min<std::uint64_t>(size, body.size()));
        if (size > rest || !file_.read(body.data(), static_cast<std::streamsize>(kept)))
            return fail("the file is cut short");
        if (isRf64 && std::memcmp(head.data(), "ds64", 4) == 0 && kept >= 16) {
            riffSize = little(body.data(), 8);
            longDataSize = little(body.data() + 8, 8);
        }
        if (std::memcmp(head.data(), "fmt ", 4) == 0 && !readFormat(std::span(body).first(kept))) {
            return false;
        }
        at += size + (size & 1);  // chunks stand at even offsets
    }
}

bool WavFile::readFormat(std::span<const char> body) {
    if (body.size() < 16) return fail("the file's format is cut short");
    auto tag = static_cast<std::uint32_t>(little(body.data(), 2));
    const auto channels = static_cast<std::uint32_t>(little(body.data() + 2, 2));
    const auto rate = static_cast<std::uint32_t>(little(body.data() + 4, 4));
    const std::uint64_t frame = little(body.data() + 12, 2);
    const auto bits = static_cast<std::uint32_t>(little(body.data() + 14, 2));
    if (tag == tagExtensible) {
        if (body.size() < 40) return fail("the file's format is cut short");
        if (!std::equal(subFormatTail.begin(), subFormatTail.end(), body.begin() + 26))
            return fail("the file's format is of a kind that is not played here");
        tag = static_cast<std::uint32_t>(little(body.data() + 24, 2));
    }
    const bool isInteger = tag == tagPcm && (bits == 8 || bits == 16 || bits == 24 || bits == 32);
    const bool isFloat = tag == tagFloat && (bits == 32 || bits == 64);
    if (!isInteger && !isFloat) {
        return fail("the file's format (tag " + std::to_string(tag) + ", " + std::to_string(bits) +
                    " bits) is not one that is played here");
    }
    // Samples in wider containers than they fill would come out as noise.
    if (channels == 0 || channels > mostChannels || rate == 0 || frame != channels * bits / 8)
        return fail("the file's format makes no sense");
    format_ = {.rate = rate, .channels = channels, .bits = bits, .isFloat = isFloat, .frames = 0};
    return true;
}

std::uint64_t WavFile::frameBytes() const {
    return static_cast<std::uint64_t>(format_.channels) * (format_.bits / 8);
}

std::uint64_t WavFile::read(std::span<double> samples) {
    if (!file_.is_open() || format_.channels == 0) return 0;
    const std::uint32_t bytes = format_.bits / 8;
    const std::uint64_t frame = frameBytes();
    const std::uint64_t wanted =
        std::min({samples.size() / format_.channels, format_.frames - next_, mostFramesAtOnce});
    if (wanted == 0) return 0;
    raw_.resize(wanted * frame);
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(dataAt_ + next_ * frame));
    file_.read(raw_.data(), static_cast<std::streamsize>(raw_.size()));
    const std::uint64_t got = static_cast<std::uint64_t>(file_.gcount()) / frame;
    const std::uint64_t count = got * format_.channels;
    for (std::uint64_t i = 0; i < count; ++i) {
        const char* at = raw_.data() + i * bytes;
        samples[i] = format_.isFloat ? floatSample(at, bytes) : integerSample(at, bytes);
    }
    next_ += got;
    return got;
}

bool WavFile::seek(std::uint64_t frame) {
    if (!file_.is_open() || frame > format_.frames) return false;
    next_ = frame;
    return true;
}

}  // namespace velmora_audio
