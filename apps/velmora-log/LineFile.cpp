#include "apps/velmora-log/LineFile.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "apps/velmora-log/ExitCode.h"
#include "base/Printable.h"

namespace velmora_log {
namespace {

namespace fs = std::filesystem;

// Of a file that is there and not empty: its last byte.
char lastByte(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file.seekg(-1, std::ios::end)) return '\n';
    char last = '\n';
    file.get(last);
    return last;
}

}  // namespace

void LineFile::open(const std::string& path) {
    path_ = path;
    const fs::path place = fs::u8path(path);
    std::error_code error;
    const bool isPlain = fs::is_regular_file(place, error);
    const bool isCut = isPlain && lastByte(place) != '\n';
    // Unbuffered: what the system has taken, and no more, is known to have been written.
    file_.pubsetbuf(nullptr, 0);
    if (file_.open(place, std::ios::out | std::ios::app | std::ios::binary) == nullptr) {
        throw Stop{exitFile,
                   ZENNO::printable(path) +
                       ": the file cannot be written; name another one, or see to its rights."};
    }
    if (!isCut) return;
    held_ = "\n";
    beginsWithAnEnd_ = true;
}

void LineFile::add(std::string_view line) {
    if (held_.size() + line.size() >= mostHeld_) {
        ++linesLost_;
        return;
    }
    held_ += line;
    held_ += '\n';
    ++linesHeld_;
}

bool LineFile::flush() {
    if (held_.empty()) return true;
    const auto size = static_cast<std::streamsize>(held_.size());
    const std::streamsize taken =
        std::clamp<std::streamsize>(file_.sputn(held_.data(), size), 0, size);
    const auto end = held_.begin() + taken;
    auto ends = static_cast<std::uint64_t>(std::count(held_.begin(), end, '\n'));
    if (ends != 0 && beginsWithAnEnd_) {
        beginsWithAnEnd_ = false;
        --ends;
    }
    linesHeld_ -= ends;
    held_.erase(held_.begin(), end);
    return held_.empty();
}

bool hasFolder(const std::string& path) {
    const fs::path place = fs::u8path(path), folder = place.parent_path();
    std::error_code error;
    return (folder.empty() || fs::is_directory(folder, error)) && !fs::is_directory(place, error);
}

bool writeFile(const std::string& path, const std::string& text) {
    const fs::path place = fs::u8path(path);
    std::error_code error;
    const bool isPlain = fs::is_regular_file(place, error) || !fs::exists(place, error);
    // Beside it first, so that a full disk leaves the older one as it is. A device has no beside.
    fs::path beside = place;
    if (isPlain) beside += ".part";
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    const bool isOpen = static_cast<bool>(file);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    bool isGood = static_cast<bool>(file);
    if (isPlain && isGood) {
        fs::rename(beside, place, error);
        isGood = !error;
    }
    if (!isGood && isPlain && isOpen) fs::remove(beside, error);
    return isGood;
}

}  // namespace velmora_log
