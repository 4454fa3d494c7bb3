// The settings files: what a tree writes out is read as the same entries, but for those without a
// value, which are not written; as text and as a file, and the second time there is nothing left to
// change.
#include "base/InfFile.h"

#include "fuzz/Fuzz.h"
#include "fuzz/ScratchFile.h"

using ZENNO::InfFile;

namespace {

std::map<std::string, std::map<std::string, std::string>> said(const InfFile& file) {
    std::map<std::string, std::map<std::string, std::string>> out;
    for (const auto& [name, section] : file.sections()) {
        for (const auto& [key, entry] : section) {
            if (!entry.value.empty()) out[name][key] = entry.value;
        }
    }
    return out;
}

InfFile readAgain(const InfFile& file) {
    std::string text;
    file.toText(text);
    InfFile again;
    again.parseText(text);
    return again;
}

// Where a file is no text the tree stays as it was.
void tryFile(std::span<const std::uint8_t> bytes, bool isText) {
    static const velmora_fuzz::ScratchFile scratch;
    scratch.write(bytes);
    InfFile file("a.b");
    require(file.load(scratch.path()) == isText);
    require(isText || (file.sections().empty() && file.path().empty()));
    if (!isText) return;
    require(file.save(scratch.path()));
    InfFile again;
    require(again.load(scratch.path()) && said(again) == said(file));
}

// Whatever is selected, copies read as the original does.
void select(InfFile& file, const std::string& name) {
    file.selectSection(name);
    InfFile copy(file), assigned;
    assigned = file;
    for (const auto& [section, entries] : file.sections()) {
        for (const auto& [key, entry] : entries) {
            require(copy.get(key) == assigned.get(key));
            // Nothing is selected by no name; a copy has the current name selected, which is
            // "global".
            require(name.empty() || copy.get(key) == file.get(key));
            require(section != name || file.get(key) == entry.value);
            file.getNumber(key);
        }
        std::string text;
        file.sectionText(section, text);
        require(!text.empty() || entries.empty());
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InfFile file;
    file.parseText(std::string_view(reinterpret_cast<const char*>(data), size));
    const InfFile again = readAgain(file);
    require(said(again) == said(file));
    require(readAgain(again) == again);

    std::vector<std::string> lines;
    const bool isText = ZENNO::splitLines({data, size}, lines, /*allowTab=*/false);
    for (const std::string& line : lines) require(!line.empty());
    tryFile({data, size}, isText);

    std::vector<std::string> names{"", "global", "a", "a.b"};
    for (const auto& [name, section] : file.sections()) {
        if (names.size() < 8) names.push_back(name);
    }
    for (const std::string& name : names) select(file, name);
    return 0;
}
