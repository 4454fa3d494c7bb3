// The settings files: what a tree writes out is read as the same entries, but for those without a
// value, which are not written.
#include "base/InfFile.h"

#include "fuzz/Fuzz.h"

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

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    InfFile file;
    file.parseText(std::string_view(reinterpret_cast<const char*>(data), size));
    std::string text;
    file.toText(text);
    InfFile again;
    again.parseText(text);
    require(said(again) == said(file));

    std::vector<std::string> lines;
    ZENNO::splitLines({data, size}, lines, /*allowTab=*/false);
    for (const std::string& line : lines) require(!line.empty());
    for (const char* name : {"", "global", "a", "a.b"}) {
        file.selectSection(name);
        file.getNumber("Debug");
    }
    return 0;
}
