// Files of a test's own, and the bytes to put into them.
#pragma once

#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "tests/base/TempFolder.h"

namespace velmora_test {

class Scratch {
public:
    std::string path(const std::string& name) const { return (folder_.native() / name).string(); }
    std::string write(const std::string& name, std::string_view bytes) const {
        const std::string where = path(name);
        std::ofstream file(where, std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return where;
    }

private:
    TempFolder folder_;
};

// All that stands in a file; empty where there is none.
inline std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// "52 49 | 46" as bytes: what is no hexadecimal digit only separates.
inline std::string hex(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string bytes;
    int high = -1;
    for (const char c : text) {
        const auto digit = digits.find(c);
        if (digit == std::string_view::npos) continue;
        if (high < 0) {
            high = static_cast<int>(digit);
        } else {
            bytes.push_back(static_cast<char>(high * 16 + static_cast<int>(digit)));
            high = -1;
        }
    }
    return bytes;
}

inline std::string little(std::uint64_t value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
    return out;
}

inline std::string chunk(const std::string& name, const std::string& body) {
    return name + little(body.size(), 4) + body + std::string(body.size() % 2, '\0');
}

// The chunks of a WAV file behind the whole's head.
inline std::string riff(const std::string& chunks) {
    return "RIFF" + little(4 + chunks.size(), 4) + "WAVE" + chunks;
}

// The body of "fmt ": tag 1 integer, 3 floating point.
inline std::string fmt(std::uint32_t tag, std::uint32_t channels, std::uint32_t rate,
                       std::uint32_t bits) {
    const std::uint32_t frame = channels * bits / 8;
    return little(tag, 2) + little(channels, 2) + little(rate, 4) + little(rate * frame, 4) +
           little(frame, 2) + little(bits, 2);
}

}  // namespace velmora_test
