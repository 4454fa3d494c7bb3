#include "apps/audio/DsfFile.h"

#include <algorithm>
#include <array>
#include <filesystem>

#include "apps/audio/DsdWords.h"

namespace velmora_audio {

namespace {

constexpr std::size_t dsdChunkBytes = 28, fmtChunkBytes = 52, dataHeaderBytes = 12;
constexpr std::size_t headerBytes = dsdChunkBytes + fmtChunkBytes + dataHeaderBytes;

// The field "channel type" by channel count: mono, stereo, three, quad, five, 5.1.
constexpr std::array<std::uint32_t, dsfMostChannels + 1> channelTypes{0, 1, 2, 3, 4, 6, 7};

std::filesystem::path pathOf(std::string_view utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

void put(std::vector<std::uint8_t>& out, std::string_view name) {
    out.insert(out.end(), name.begin(), name.end());
}
void put(std::vector<std::uint8_t>& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}
std::uint64_t get(std::span<const std::uint8_t> in, std::size_t at, int bytes) {
    std::uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = value << 8 | in[at + static_cast<std::size_t>(i)];
    return value;
}

bool readExactly(std::ifstream& file, std::span<std::uint8_t> out) {
    file.read(reinterpret_cast<char*>(out.data()), static_cast<std::streamsize>(out.size()));
    return static_cast<std::size_t>(file.gcount()) == out.size();
}

}  // namespace

Failure DsfWriter::open(std::string_view utf8Path, std::uint32_t channels,
                        std::uint32_t sampleRate) {
    close();
    if (channels == 0 || channels > dsfMostChannels) {
        return "a DSF file holds one to six channels, not " + std::to_string(channels);
    }
    file_.open(pathOf(utf8Path), std::ios::binary | std::ios::trunc);
    if (!file_) {
        file_.clear();
        return "cannot write " + std::string(utf8Path);
    }
    format_ = {channels, sampleRate, 0};
    blocks_.assign(dsfBlockBytes * channels, 0);
    filled_ = channel_ = 0;
    bytesPerChannel_ = dataBytes_ = 0;
    writeHeader();
    return file_ ? Failure() : "cannot write " + std::string(utf8Path);
}

void DsfWriter::writeHeader() {
    std::vector<std::uint8_t> head;
    head.reserve(headerBytes);
    put(head, "DSD ");
    put(head, dsdChunkBytes, 8);
    put(head, headerBytes + dataBytes_, 8);
    put(head, 0, 8);  // no metadata
    put(head, "fmt ");
    put(head, fmtChunkBytes, 8);
    put(head, 1, 4);
    put(head, 0, 4);
    put(head, channelTypes[format_.channels], 4);
    put(head, format_.channels, 4);
    put(head, format_.sampleRate, 4);
    put(head, 1, 4);
    put(head, format_.samples, 8);
    put(head, dsfBlockBytes, 4);
    put(head, 0, 4);
    put(head, "data");
    put(head, dataHeaderBytes + dataBytes_, 8);
    file_.write(reinterpret_cast<const char*>(head.data()),
                static_cast<std::streamsize>(head.size()));
}

void DsfWriter::writeBlocks() {
    file_.write(reinterpret_cast<const char*>(blocks_.data()),
                static_cast<std::streamsize>(blocks_.size()));
    dataBytes_ += blocks_.size();
    std::fill(blocks_.begin(), blocks_.end(), std::uint8_t{0});
    filled_ = 0;
}

Failure DsfWriter::write(std::span<const std::uint8_t> interleaved) {
    if (!isOpen()) return "the DSF file is not open";
    for (const std::uint8_t byte : interleaved) {
        blocks_[channel_ * dsfBlockBytes + filled_] = byte;
        if (++channel_ < format_.channels) continue;
        channel_ = 0;
        ++bytesPerChannel_;
        if (++filled_ == dsfBlockBytes) writeBlocks();
    }
    return file_ ? Failure() : "writing the DSF file failed";
}

Failure DsfWriter::close() {
    if (!isOpen()) return {};
    // A turn that did not reach every channel is no sample of any.
    for (std::size_t c = 0; c < channel_; ++c) blocks_[c * dsfBlockBytes + filled_] = 0;
    channel_ = 0;
    if (filled_ != 0) writeBlocks();
    format_.samples = bytesPerChannel_ * 8;
    file_.seekp(0);
    writeHeader();
    file_.flush();
    const bool good = static_cast<bool>(file_);
    file_.close();
    file_.clear();
    return good ? Failure() : "writing the DSF file failed";
}

Failure DsfReader::open(std::string_view utf8Path) {
    const std::string name(utf8Path);
    *this = DsfReader();
    file_.open(pathOf(utf8Path), std::ios::binary);
    if (!file_) return "cannot read " + name;

    std::array<std::uint8_t, dsdChunkBytes> dsd{};
    if (!readExactly(file_, dsd) || get(dsd, 0, 4) != 0x20445344 ||
        get(dsd, 4, 8) < dsdChunkBytes) {
        return name + " is no DSF file";
    }
    file_.seekg(static_cast<std::streamoff>(std::min<std::uint64_t>(get(dsd, 4, 8), INT64_MAX)));
    std::array<std::uint8_t, fmtChunkBytes> fmt{};
    if (!readExactly(file_, fmt) || get(fmt, 0, 4) != 0x20746d66 ||
        get(fmt, 4, 8) < fmtChunkBytes) {
        return name + " has no format chunk";
    }
    const auto field = [&fmt](std::size_t at) {
        return static_cast<std::uint32_t>(get(fmt, at, 4));
    };
    if (field(12) != 1 || field(16) != 0) return name + " is of an unknown DSF version";
    format_ = {field(24), field(28), get(fmt, 36, 8)};
    if (format_.channels == 0 || format_.channels > dsfMostChannels) {
        return name + " has " + std::to_string(format_.channels) + " channels";
    }
    if (format_.sampleRate == 0) return name + " has no sample rate";
    if (field(32) != 1 && field(32) != 8) return name + " has an unknown bit order";
    oldestIsMsb_ = field(32) == 8;
    if (field(44) != dsfBlockBytes) return name + " has blocks of another size than 4096";
    file_.seekg(static_cast<std::streamoff>(
                    std::min<std::uint64_t>(get(fmt, 4, 8) - fmtChunkBytes, INT64_MAX)),
                std::ios::cur);
    std::array<std::uint8_t, dataHeaderBytes> data{};
    if (!readExactly(file_, data) || get(data, 0, 4) != 0x61746164 ||
        get(data, 4, 8) < dataHeaderBytes) {
        return name + " has no data chunk";
    }
    // The sample count rules; the chunk's length only when it holds less.
    const std::uint64_t held =
        (get(data, 4, 8) - dataHeaderBytes) / (dsfBlockBytes * format_.channels) * dsfBlockBytes;
    if (held * 8 < format_.samples && held < UINT64_MAX / 8) format_.samples = held * 8;
    left_ = bytesPerChannel();
    blocks_.resize(dsfBlockBytes * format_.channels);
    return {};
}

bool DsfReader::readBlocks() {
    at_ = held_ = 0;
    if (left_ == 0) return false;
    if (!readExactly(file_, blocks_)) {
        left_ = 0;
        return false;
    }
    held_ = static_cast<std::size_t>(std::min<std::uint64_t>(left_, dsfBlockBytes));
    left_ -= held_;
    return true;
}

std::size_t DsfReader::read(std::span<std::uint8_t> interleaved) {
    std::size_t done = 0;
    while (format_.channels != 0 && interleaved.size() - done >= format_.channels) {
        if (at_ == held_ && !readBlocks()) break;
        for (std::size_t c = 0; c < format_.channels; ++c) {
            const std::uint8_t byte = blocks_[c * dsfBlockBytes + at_];
            interleaved[done++] = oldestIsMsb_ ? reverseBits(byte) : byte;
        }
        ++at_;
    }
    return done;
}

}  // namespace velmora_audio
