// The rooms of the house and who may look into which: every #include "..." of the tree is held
// against the table below. CMake refuses most of what is wrong; this says it in words, and covers
// headers too.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Room {
    const char* name;
    std::vector<std::string> prefixes;  // of paths below the root; the first room that fits has it
    std::vector<std::string> mayUse;    // rooms, besides itself
};

const std::vector<Room>& rooms() {
    static const std::vector<Room> table = {
        {"platform", {"platform/"}, {}},
        {"log", {"base/Log.", "base/LogRing."}, {"platform", "base", "network"}},
        {"base", {"base/"}, {"platform"}},
        {"network", {"src/Network/"}, {"platform", "base"}},
        {"records", {"driver/SinkConfig.", "driver/TargetInfo."}, {"base"}},
        {"wire", {"wire/"}, {"base", "records"}},
        {"find", {"find/"}, {"platform", "base", "network", "records", "wire"}},
        {"sync", {"sync/"}, {"platform", "base", "network", "records", "wire"}},
        {"driver",
         {"driver/"},
         {"platform", "base", "log", "network", "records", "wire", "find", "sync"}},
        {"target", {"target/"}, {"base", "network", "records", "wire"}},
    };
    return table;
}

const Room* roomOf(const std::string& path) {
    for (const Room& room : rooms()) {
        for (const std::string& prefix : room.prefixes) {
            if (path.starts_with(prefix)) return &room;
        }
    }
    return nullptr;
}

bool mayUse(const Room& room, const Room& used) {
    return &room == &used ||
           std::find(room.mayUse.begin(), room.mayUse.end(), used.name) != room.mayUse.end();
}

// What stands between the marks, for a line that includes something.
std::optional<std::string> included(const std::string& line, char open, char close) {
    const auto word = line.find_first_not_of(" \t");
    if (word == std::string::npos || line[word] != '#') return std::nullopt;
    const auto include = line.find("include", word);
    if (include == std::string::npos) return std::nullopt;
    const auto begin = line.find(open, include);
    const auto end = line.find(close, begin + 1);
    if (begin == std::string::npos || end == std::string::npos) return std::nullopt;
    return line.substr(begin + 1, end - begin - 1);
}

class Includes : public testing::Test {
protected:
    void SetUp() override {
        // Tests that are carried elsewhere, or run under another system, have no sources beside
        // them.
        if (!fs::exists(root_ / "base")) GTEST_SKIP() << "no sources at " << root_;
    }

    // Calls visit(path below the root, line, number) for every line of the folders' sources.
    template <class Visit>
    int everyLine(const std::vector<std::string>& folders, Visit visit) const {
        int files = 0;
        for (const std::string& folder : folders) {
            if (!fs::exists(root_ / folder)) continue;
            for (const auto& entry : fs::recursive_directory_iterator(root_ / folder)) {
                const fs::path extension = entry.path().extension();
                if (extension != ".h" && extension != ".cpp") continue;
                ++files;
                const std::string path = entry.path().lexically_relative(root_).generic_string();
                std::ifstream file(entry.path());
                std::string line;
                for (int number = 1; std::getline(file, line); ++number) visit(path, line, number);
            }
        }
        return files;
    }

    const fs::path root_ = VELMORA_SOURCE_DIR;
    const std::vector<std::string> roomFolders_ = {"platform", "base", "src/Network", "driver",
                                                   "wire",     "find", "sync",        "target"};
    const std::vector<std::string> otherFolders_ = {"apps", "tests", "bench", "fuzz"};
};

}  // namespace

TEST_F(Includes, PointOneWay) {
    const int files =
        everyLine(roomFolders_, [&](const std::string& path, const std::string& line, int number) {
            const auto name = included(line, '"', '"');
            if (!name) return;
            const Room* room = roomOf(path);
            const Room* used = roomOf(*name);
            ASSERT_NE(room, nullptr) << path;
            if (!used) {
                ADD_FAILURE() << path << ":" << number << " includes " << *name
                              << ", which is no room's";
            } else if (!mayUse(*room, *used)) {
                ADD_FAILURE() << path << ":" << number << " includes " << *name << ": "
                              << room->name << " may not use " << used->name;
            }
        });
    EXPECT_GT(files, 20) << "the sources are not where they should be";
}

TEST_F(Includes, OnlyTheSeamKnowsTheOperatingSystem) {
    // Not spelled out, so that this file itself may be read.
    const std::string windows = std::string("_WIN") + "32";
    const std::vector<std::string> headers = {"windows.h",    "winsock2.h",   "ws2tcpip.h",
                                              "sys/socket.h", "netinet/in.h", "arpa/inet.h"};
    std::vector<std::string> folders = roomFolders_;
    folders.insert(folders.end(), otherFolders_.begin(), otherFolders_.end());
    everyLine(folders, [&](const std::string& path, const std::string& line, int number) {
        if (path.starts_with("platform/")) return;
        if (line.find(windows) != std::string::npos) {
            ADD_FAILURE() << path << ":" << number << " asks for the operating system";
        }
        const auto name = included(line, '<', '>');
        if (!name || !roomOf(path)) return;
        if (std::find(headers.begin(), headers.end(), *name) != headers.end()) {
            ADD_FAILURE() << path << ":" << number << " includes <" << *name << ">";
        }
    });
}

TEST_F(Includes, NoHeaderOfTheSeamKnowsTheOperatingSystem) {
    for (const auto& entry : fs::directory_iterator(root_ / "platform")) {
        if (entry.path().extension() != ".h") continue;
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            const auto name = included(line, '<', '>');
            if (!name) continue;
            EXPECT_EQ(name->find(".h"), std::string::npos) << entry.path() << ": " << line;
        }
    }
}

TEST_F(Includes, RoomsAreFoundByTheirPaths) {
    EXPECT_STREQ(roomOf("base/LogLine.h")->name, "base");
    EXPECT_STREQ(roomOf("base/Log.h")->name, "log");
    EXPECT_STREQ(roomOf("base/LogRing.cpp")->name, "log");
    EXPECT_STREQ(roomOf("driver/SinkConfig.h")->name, "records");
    EXPECT_STREQ(roomOf("driver/Settings.h")->name, "driver");
    EXPECT_EQ(roomOf("tests/support/FakeClock.h"), nullptr);
    EXPECT_FALSE(mayUse(*roomOf("find/Find.h"), *roomOf("sync/Sync.h")));
    EXPECT_FALSE(mayUse(*roomOf("target/Playout.h"), *roomOf("sync/Sync.h")));
    EXPECT_TRUE(mayUse(*roomOf("driver/AsioVelmora.h"), *roomOf("sync/Sync.h")));
    EXPECT_EQ(included("#include \"a/b.h\"  // why", '"', '"'), "a/b.h");
    EXPECT_EQ(included("# include <vector>", '<', '>'), "vector");
    EXPECT_EQ(included("// #include \"a/b.h\"", '"', '"'), std::nullopt);
}
