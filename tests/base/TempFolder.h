// A folder of the test's own, gone with everything in it when the test ends. Its path is spelled as
// the system spells paths.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>

namespace velmora_test {

class TempFolder {
public:
    TempFolder() {
        std::random_device random;
        native_ =
            std::filesystem::temp_directory_path() / ("velmora-test-" + std::to_string(random()));
        std::filesystem::create_directories(native_);
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(native_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // With its final backslash.
    std::string path() const { return spelled(native_) + '\\'; }
    const std::filesystem::path& native() const { return native_; }

    // A folder below this one, with its final backslash; its parents are made as well.
    std::string makeFolder(const std::u8string& name) const {
        std::filesystem::create_directories(native_ / name);
        return spelled(native_ / name) + '\\';
    }

private:
    static std::string spelled(const std::filesystem::path& path) {
        const std::u8string utf8 = path.generic_u8string();
        std::string text(utf8.begin(), utf8.end());
        std::replace(text.begin(), text.end(), '/', '\\');
        return text;
    }
    std::filesystem::path native_;
};

}  // namespace velmora_test
