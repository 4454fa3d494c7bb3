// The contents of .inf settings files: sections of keys with text values.
//
// The reader takes nearly anything and complains about nearly nothing; a line that it does not
// understand is passed over. Names and values are bytes, compared byte by byte. A tree belongs to
// one thread at a time.
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/BufferCS.h"

namespace ZENNO {

struct InfEntry {
    std::string value;
    std::uint32_t order = 0;  // which parsed entry it was, from 1; 0 for one that was only set

    // What a file says, not in which order it says it.
    friend bool operator==(const InfEntry& a, const InfEntry& b) noexcept {
        return a.value == b.value;
    }
};

using SectionMap = std::map<std::string, InfEntry>;

class InfFile {
public:
    InfFile();
    explicit InfFile(std::string_view currentSection);
    InfFile(const InfFile& other);
    InfFile& operator=(const InfFile& other);
    ~InfFile() = default;

    // Merges a file into the tree: its entries replace equal keys, everything else stays. False for
    // a file that cannot be read or holds a control character (a tab is one); the tree is then as
    // it was.
    bool load(const std::string& path);
    // Merges text that has no file: a byte-order mark is no mark there, control characters are
    // text.
    void parseText(std::string_view text);
    // Loads NAME.inf and then NAME_windows.inf over it from the first folder that yields either,
    // from the folder of the running program upward. `folder` is that folder, empty where there is
    // none.
    bool findAndLoad(std::string_view name, std::string& folder);
    // The same from `start` upward; a folder ends in a backslash.
    bool findAndLoadFrom(const std::string& start, std::string_view name, std::string& folder);

    // "a.b" reads from the section [a.b] alone if there is one, else from [a]. A section that is
    // made later is seen after the next selection. An empty name selects nothing for reading, and
    // "global" for `set`.
    void selectSection(std::string_view name);

    std::string get(std::string_view key) const;  // empty if absent
    std::int64_t getNumber(std::string_view key) const;
    void set(std::string_view key, std::string_view value);
    template <std::integral Number>
    void set(std::string_view key, Number number) {
        set(key, std::string_view(std::to_string(number)));
    }

    // key=value lines in key order, a line feed between them and none behind the last.
    void sectionText(std::string_view name, std::string& out) const;
    // The tree as a file has it. Entries without a value are not written.
    void toText(std::string& out) const;
    bool save(const std::string& path) const;

    const std::map<std::string, SectionMap>& sections() const noexcept { return sections_; }
    const std::string& currentName() const noexcept { return currentName_; }
    std::uint32_t entryCount() const noexcept { return entryCount_; }
    const std::string& path() const noexcept { return path_; }  // of the file last loaded

    // Equal contents; which section is selected and where it came from do not count.
    friend bool operator==(const InfFile& a, const InfFile& b) noexcept {
        return a.sections_ == b.sections_;
    }

private:
    void parse(const std::vector<std::string>& lines);
    SectionMap* find(std::string_view name);

    std::map<std::string, SectionMap> sections_;
    std::string currentName_ = "global";
    SectionMap* primary_ = nullptr;    // the current section, or the parent of a dotted one
    SectionMap* secondary_ = nullptr;  // a dotted current section
    std::uint32_t entryCount_ = 0;
    std::string path_;
};

// Lines end at CR or LF, empty ones are dropped, a UTF-8 byte-order mark in front is skipped. Other
// bytes below 0x20 are dropped and make the result false (a tab, if allowed, is kept instead); the
// lines are whole in either case.
bool splitLines(BufferCS_const data, std::vector<std::string>& lines, bool allowTab);

bool readFile(const std::string& path, Bytes& data);           // the whole file, or false
bool writeFile(BufferCS_const data, const std::string& path);  // false unless all was written
bool removeFile(const std::string& path);

}  // namespace ZENNO
