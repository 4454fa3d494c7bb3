// Files that a test can lose, lock and fill.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/velmora-settings/model/Files.h"

namespace velmora_test {

struct FilesInMemory {
    using Files = velmora_settings::Files;

    std::map<std::string, std::string> content;
    std::set<std::string> unreadable;
    std::set<std::string> folders;
    Files::WriteOutcome outcome = Files::WriteOutcome::done;
    bool makesFolders = true;
    std::vector<std::string> written;  // paths, in order

    Files files() {
        return {[this](const std::string& path) {
                    return content.count(path) ? Files::FileKind::file : Files::FileKind::missing;
                },
                [this](const std::string& path, std::string& text) {
                    const auto found = content.find(path);
                    if (found == content.end() || unreadable.count(path)) return false;
                    text = found->second;
                    return true;
                },
                [this](const std::string& path, const std::string& text) {
                    if (outcome != Files::WriteOutcome::done) return outcome;
                    content[path] = text;
                    written.push_back(path);
                    return outcome;
                },
                [this](const std::string& path) {
                    if (makesFolders) folders.insert(path);
                    return makesFolders;
                }};
    }
};

// Where the tests' files lie.
inline const std::string userPath = "R\\KORVENTE Velmora\\setting.inf";
inline const std::string debugPath = "R\\KORVENTE Velmora\\debug.inf";
inline const std::string factoryPath = "D\\setting_org.inf";
inline const std::string pointerPath = "D\\setting_path.inf";
inline const std::string factoryText =
    "; the factory's\r\nVersion=1_112_1\r\nASIOControlPanel=velmora-settings.exe\r\n"
    "CycleTime=1000\r\n";

}  // namespace velmora_test
