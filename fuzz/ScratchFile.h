// A file of the fuzzer's bytes, for readers that take the name of one. It is written anew for each
// input and gone with the process.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <string>

namespace velmora_fuzz {

class ScratchFile {
public:
    ScratchFile()
        : path_(std::filesystem::temp_directory_path() /
                ("velmora-fuzz-" + std::to_string(std::random_device{}()))) {}
    ~ScratchFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::string path() const {
        const std::u8string text = path_.u8string();
        return {text.begin(), text.end()};
    }
    void write(std::span<const std::uint8_t> bytes) const {
        std::ofstream file(path_, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::filesystem::path path_;
};

}  // namespace velmora_fuzz
