#include "base/InfFile.h"

#include <algorithm>

#include "base/Number.h"
#include "base/Path.h"
#include "platform/System.h"

namespace ZENNO {

namespace {

constexpr std::string_view globalSection = "global";
constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
constexpr char platformSuffix[] = "_windows";
constexpr char extension[] = ".inf";

// Blanks alone are white space in these files.
std::string_view withoutLeadingBlanks(std::string_view text) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text;
}

std::string_view withoutTrailingBlanks(std::string_view text) noexcept {
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string_view withoutBlanks(std::string_view text) noexcept {
    return withoutTrailingBlanks(withoutLeadingBlanks(text));
}

bool isComment(std::string_view line) noexcept {
    return line.front() == ';' || line.front() == '#' || line.starts_with("//");
}

bool endsLine(char c) noexcept {
    return c == '\n' || c == '\r';
}

}  // namespace

InfFile::InfFile() = default;

InfFile::InfFile(std::string_view currentSection) {
    selectSection(currentSection);
}

InfFile::InfFile(const InfFile& other)
    : sections_(other.sections_),
      currentName_(other.currentName_),
      entryCount_(other.entryCount_),
      path_(other.path_) {
    selectSection(currentName_);
}

InfFile& InfFile::operator=(const InfFile& other) {
    if (this == &other) return *this;
    sections_ = other.sections_;
    currentName_ = other.currentName_;
    entryCount_ = other.entryCount_;
    path_ = other.path_;
    selectSection(currentName_);
    return *this;
}

bool InfFile::load(const std::string& path) {
    Bytes data;
    std::vector<std::string> lines;
    if (!readFile(path, data) || !splitLines(data, lines, /*allowTab=*/false)) return false;
    parse(lines);
    path_ = path;
    return true;
}

void InfFile::parseText(std::string_view text) {
    std::vector<std::string> lines;
    for (auto at = text.begin(); at != text.end();) {
        const auto end = std::find_if(at, text.end(), endsLine);
        if (end != at) lines.emplace_back(at, end);
        at = end == text.end() ? end : end + 1;
    }
    parse(lines);
}

bool InfFile::findAndLoad(std::string_view name, std::string& folder) {
    std::string start;
    modulePath(start);
    folderOf(start);
    return findAndLoadFrom(start, name, folder);
}

bool InfFile::findAndLoadFrom(const std::string& start, std::string_view name,
                              std::string& folder) {
    std::string dir = start;
    folder.clear();
    do {
        const std::string stem = dir + std::string(name);
        bool loaded = false;
        // The platform's file comes second, so that it wins key by key.
        for (const std::string& path : {stem + extension, stem + platformSuffix + extension}) {
            if (fileExists(path, /*folder=*/false) && load(path)) loaded = true;
        }
        if (loaded) {
            folder = dir;
            return true;
        }
    } while (parentFolder(dir));
    return false;
}

void InfFile::selectSection(std::string_view name) {
    const std::string wanted(name);  // may be a view of currentName_
    currentName_ = wanted.empty() ? std::string(globalSection) : wanted;
    const auto point = wanted.find('.');
    primary_ = find(std::string_view(wanted).substr(0, point));
    secondary_ = point == std::string::npos ? nullptr : find(wanted);
}

std::string InfFile::get(std::string_view key) const {
    // A dotted section that exists hides its parent wholly.
    const SectionMap* map = secondary_ ? secondary_ : primary_;
    if (!map) return {};
    const auto entry = map->find(std::string(key));
    return entry == map->end() ? std::string() : entry->second.value;
}

std::int64_t InfFile::getNumber(std::string_view key) const {
    return readInteger(get(key));
}

void InfFile::set(std::string_view key, std::string_view value) {
    sections_[currentName_][std::string(key)].value = value;
}

void InfFile::sectionText(std::string_view name, std::string& out) const {
    out.clear();
    const auto section = sections_.find(std::string(name));
    if (section == sections_.end()) return;
    bool first = true;
    for (const auto& [key, entry] : section->second) {
        if (!first) out += '\n';
        first = false;
        out += key + '=' + entry.value;
    }
}

void InfFile::toText(std::string& out) const {
    out.clear();
    for (const auto& [name, section] : sections_) {
        out += '[' + name + "]\r\n";
        for (const auto& [key, entry] : section) {
            if (!entry.value.empty()) out += key + '=' + entry.value + "\r\n";
        }
        out += "\r\n";
    }
}

bool InfFile::save(const std::string& path) const {
    std::string text;
    toText(text);
    return platform::writeWholeFile(path, reinterpret_cast<const std::uint8_t*>(text.data()),
                                    text.size());
}

void InfFile::parse(const std::vector<std::string>& lines) {
    std::string section;
    for (const std::string& whole : lines) {
        const std::string_view line = withoutLeadingBlanks(whole);
        if (line.empty() || isComment(line)) continue;
        if (line.front() == '[') {
            const std::string_view head = withoutTrailingBlanks(line);
            if (head.back() == ']') section = withoutBlanks(head.substr(1, head.size() - 2));
            continue;
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view key = withoutTrailingBlanks(line.substr(0, equals));
        if (key.empty()) continue;
        SectionMap& map = sections_[section.empty() ? std::string(globalSection) : section];
        map[std::string(key)] = {std::string(withoutBlanks(line.substr(equals + 1))),
                                 ++entryCount_};
    }
    selectSection(currentName_);
}

SectionMap* InfFile::find(std::string_view name) {
    const auto section = sections_.find(std::string(name));
    return section == sections_.end() ? nullptr : &section->second;
}

bool splitLines(BufferCS_const data, std::vector<std::string>& lines, bool allowTab) {
    std::string_view text(reinterpret_cast<const char*>(data.data), data.size);
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());

    bool sound = true;
    std::string line;
    const auto finishLine = [&] {
        if (!line.empty()) lines.push_back(std::move(line));
        line.clear();
    };
    for (const char c : text) {
        if (endsLine(c)) {
            finishLine();
        } else if (static_cast<unsigned char>(c) < 0x20 && !(c == '\t' && allowTab)) {
            sound = false;
        } else {
            line += c;
        }
    }
    finishLine();
    return sound;
}

bool readFile(const std::string& path, Bytes& data) {
    return platform::readWholeFile(path, data);
}

bool writeFile(BufferCS_const data, const std::string& path) {
    return platform::writeWholeFile(path, data.data, data.size);
}

bool removeFile(const std::string& path) {
    return platform::deleteFile(path);
}

}  // namespace ZENNO
