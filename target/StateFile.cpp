#include "target/StateFile.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace velmora_target {

namespace {

namespace fs = std::filesystem;

std::string textOf(const ItemRow& row, const ItemValue& value) {
    const std::string number = std::to_string(row.valueOf(value.number));
    if (!row.hasText()) return number;
    const std::string quoted = '"' + value.text + '"';
    return row.type == ItemType::text ? quoted : number + ' ' + quoted;
}

// The value of an entry; a text that says why it is none, or empty.
std::string readValue(const ItemRow& row, const std::string& text, ItemValue& value) {
    const std::string noForm = "not of its form";
    std::string rest = text;
    if (row.type != ItemType::text) {
        std::int32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc()) return noForm;
        // Ahead of the cut to 16 bits, which could bring it back inside.
        if (!row.holds(number)) return "not " + row.bounds();
        value.number = static_cast<std::uint16_t>(number);
        rest.erase(0, static_cast<std::size_t>(end - text.data()));
        rest.erase(0, rest.find_first_not_of(' '));
    }
    if (row.hasText() && !rest.empty()) {
        if (rest.size() < 2 || rest.front() != '"' || rest.back() != '"') return noForm;
        value.text = rest.substr(1, rest.size() - 2);
        rest.clear();
    }
    return rest.empty() ? objectionTo(row, value) : noForm;
}

// False with errno.
bool isWritten(const std::string& path, const std::string& text, const WriteThrough& writeThrough) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    const bool written =
        std::fwrite(text.data(), 1, text.size(), file) == text.size() && writeThrough(file);
    const int why = errno;
    if (std::fclose(file) != 0) return false;
    errno = why;
    return written;
}

}  // namespace

std::string StateFile::load(KeptValues& values) {
    std::error_code error;
    const fs::file_status status = fs::status(path_, error);
    if (status.type() == fs::file_type::not_found) {
        const fs::path folder = fs::path(path_).parent_path();
        return folder.empty() || fs::is_directory(folder, error)
                   ? std::string()
                   : "there is no folder " + folder.string();
    }
    std::ifstream file(path_, std::ios::binary);
    if (status.type() != fs::file_type::regular || !file) return path_ + " cannot be read";
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::vector<std::string> ignored;
    if (!ZENNO::splitLines({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                           ignored, /*allowTab=*/false)) {
        return path_ + " is damaged: it holds control characters";
    }
    ZENNO::InfFile tree(section);
    tree.parseText(text);
    if (!tree.sections().contains(section)) {
        return path_ + " is no state file: it has no section [" + section + "]";
    }
    for (const ItemRow& row : itemTable()) {
        const std::string entry = tree.get(row.key);
        if (entry.empty()) continue;
        ItemValue value;
        const std::string objection = readValue(row, entry, value);
        if (!objection.empty()) {
            return path_ + " is damaged: " + row.key + '=' + entry + ": " + objection;
        }
        values[row.key] = value;
    }
    tree_ = tree;
    return {};
}

std::string StateFile::save(const KeptValues& values) {
    ZENNO::InfFile tree = tree_;
    // A section without an entry that has a value would be lost on reading.
    tree.set("version", 1);
    for (const ItemRow& row : itemTable()) {
        const auto value = values.find(row.key);
        if (value != values.end()) tree.set(row.key, textOf(row, value->second));
    }
    std::string text;
    tree.toText(text);
    std::string failure = write(text);
    if (failure.empty()) tree_ = tree;
    return failure;
}

std::string StateFile::write(const std::string& text) const {
    const std::string draft = path_ + ".tmp";
    std::error_code error;
    if (!isWritten(draft, text, writeThrough_)) {
        const std::string why = std::strerror(errno);
        fs::remove(draft, error);
        return "cannot write " + draft + ": " + why;
    }
    fs::rename(draft, path_, error);
    if (!error) return {};
    const std::string why = error.message();
    fs::remove(draft, error);
    return "cannot write " + path_ + ": " + why;
}

}  // namespace velmora_target
