// A file that lines are added to. What it does not take is held until it does, so that a disk that
// was full for a while costs nothing.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace velmora_log {

class LineFile {
public:
    explicit LineFile(std::size_t mostHeld = 64 << 20) : mostHeld_(mostHeld) {}  // bytes

    // Adds to what is there; a last line that was cut gets its end first. Stop where it cannot be.
    void open(const std::string& path);
    bool isOpen() const { return file_.is_open(); }

    void add(std::string_view line);  // a newline goes behind it
    // Hands the system what there is. False where some of it stays here.
    bool flush();
    bool isWaiting() const { return !held_.empty(); }
    std::uint64_t linesHeld() const { return linesHeld_; }
    std::uint64_t linesLost() const { return linesLost_; }  // no room was left to hold them
    const std::string& path() const { return path_; }

private:
    std::size_t mostHeld_;
    std::string path_;
    std::filebuf file_;
    std::string held_;
    bool beginsWithAnEnd_ = false;  // `held_`: that of a line which was cut
    std::uint64_t linesHeld_ = 0, linesLost_ = 0;
};

// Whether a file can come to lie there, as far as its folder tells.
bool hasFolder(const std::string& path);
// Replaces the file whole; or leaves it, and false.
bool writeFile(const std::string& path, const std::string& text);

}  // namespace velmora_log
