#include "platform/System.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/Time.h"
#include "platform/posix/Paths.h"
#include "tests/base/TempFolder.h"

using namespace ZENNO::platform;
using velmora_test::TempFolder;

namespace {

using Data = std::vector<std::uint8_t>;

Data bytesOf(const std::string& text) {
    return Data(text.begin(), text.end());
}

bool write(const std::string& path, const Data& data) {
    return writeWholeFile(path, data.data(), data.size());
}

// A copy of this program that finds ORDERS beside itself does no tests: it takes a while, writes
// that it is done, and ends. That is the program which the tests below start.
const std::string ordersSuffix = ".orders";
const bool isTheCopy = [] {
    const std::string orders = processPath() + ordersSuffix;
    if (fileKind(orders) != FileKind::file) return false;
    sleepNanos(50'000'000);
    write(orders, bytesOf("done"));
    std::_Exit(0);
}();

}  // namespace

TEST(System, ProcessPathNamesTheRunningProgram) {
    const std::string path = processPath();
    EXPECT_NE(path.find("\\test_platform"), std::string::npos) << path;
    EXPECT_EQ(path.find('/'), std::string::npos) << path;
    EXPECT_EQ(fileKind(path), FileKind::file);
}

TEST(System, DriverFolderIsThatOfTheProgramWhereNoDriverIsLoaded) {
    const std::string path = processPath();
    EXPECT_EQ(driverFolder(), path.substr(0, path.rfind('\\') + 1));
    EXPECT_EQ(fileKind(driverFolder()), FileKind::folder);
}

TEST(System, RoamingFolderHasNoFinalBackslash) {
    const std::string folder = roamingFolder();
    EXPECT_FALSE(folder.ends_with('\\')) << folder;
    EXPECT_EQ(folder.find('/'), std::string::npos) << folder;
}

TEST(System, TellsFilesFromFolders) {
    const TempFolder temp;
    const std::string folder = temp.makeFolder(u8"Größe 測試");
    const std::string file = folder + "file";
    ASSERT_TRUE(write(file, {1}));
    struct Case {
        const char* why;
        std::string path;
        FileKind kind;
    };
    const Case cases[] = {
        {"a file", file, FileKind::file},
        {"a folder", folder.substr(0, folder.size() - 1), FileKind::folder},
        {"a folder with its backslash", folder, FileKind::folder},
        {"a file is no folder", file + '\\', FileKind::missing},
        {"nothing of that name", folder + "nothing", FileKind::missing},
        {"no name", "", FileKind::missing},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(fileKind(c.path), c.kind);
    }
}

TEST(System, ReadsWhatItWrote) {
    const TempFolder temp;
    const std::string path = temp.path() + "data";
    Data all;
    for (int i = 0; i < 100'000; ++i) all.push_back(static_cast<std::uint8_t>(i % 251));
    for (const Data& data : {all, Data{}, bytesOf("a\r\nb\x1a\nc"), Data{0}}) {
        ASSERT_TRUE(write(path, data));  // also over a longer one
        Data read{9, 9};
        ASSERT_TRUE(readWholeFile(path, read));
        EXPECT_EQ(read, data);
    }
}

TEST(System, WhatCannotBeReadLeavesTheDataAlone) {
    const TempFolder temp;
    Data data{1, 2};
    EXPECT_FALSE(readWholeFile(temp.path() + "missing", data));
    EXPECT_FALSE(readWholeFile(temp.makeFolder(u8"folder"), data));
    EXPECT_FALSE(readWholeFile(temp.path() + "folder", data));
    EXPECT_FALSE(readWholeFile("", data));
    EXPECT_EQ(data, (Data{1, 2}));
}

TEST(System, WritesIntoNoMissingFolderAndOverNoFolder) {
    const TempFolder temp;
    temp.makeFolder(u8"folder");
    EXPECT_FALSE(write(temp.path() + "missing\\file", {1}));
    EXPECT_FALSE(write(temp.path() + "folder", {1}));
}

TEST(System, DeletesFilesAlone) {
    const TempFolder temp;
    const std::string path = temp.path() + "file";
    ASSERT_TRUE(write(path, {1}));
    EXPECT_TRUE(deleteFile(path));
    EXPECT_EQ(fileKind(path), FileKind::missing);
    EXPECT_FALSE(deleteFile(path));
    temp.makeFolder(u8"folder");
    EXPECT_FALSE(deleteFile(temp.path() + "folder"));
}

TEST(System, PathOf260UnitsNamesNothing) {
    const TempFolder temp;
    const auto pathOf = [&](std::size_t units) {
        return temp.path() + std::string(units - utf16Length(temp.path()), 'x');
    };
    Data data;
    EXPECT_TRUE(write(pathOf(259), {7}));
    EXPECT_TRUE(readWholeFile(pathOf(259), data));
    EXPECT_EQ(fileKind(pathOf(259)), FileKind::file);
    EXPECT_TRUE(deleteFile(pathOf(259)));

    EXPECT_FALSE(write(pathOf(260), {7}));
    EXPECT_FALSE(readWholeFile(pathOf(260), data));
    EXPECT_EQ(fileKind(pathOf(260)), FileKind::missing);
    EXPECT_FALSE(deleteFile(pathOf(260)));
    EXPECT_FALSE(runProgramAndWait(pathOf(260)));
}

TEST(System, WaitsForTheProgramThatItStarts) {
    ASSERT_FALSE(isTheCopy);
    const TempFolder temp;
    const std::string own = processPath();
    const std::string copy = temp.path() + "copy of test" + own.substr(own.rfind('\\') + 1);
    Data program;
    ASSERT_TRUE(readWholeFile(own, program));
    ASSERT_TRUE(write(copy, program));
    for (const auto& entry : std::filesystem::directory_iterator(temp.native())) {
        std::filesystem::permissions(entry, std::filesystem::perms::owner_all);
    }
    ASSERT_TRUE(write(copy + ordersSuffix, bytesOf("go")));

    bool started = false;
    EXPECT_TRUE(runProgramAndWait(copy, [&] { started = true; }));
    EXPECT_TRUE(started);
    Data said;
    ASSERT_TRUE(readWholeFile(copy + ordersSuffix, said));
    EXPECT_EQ(said, bytesOf("done"));
}

TEST(System, StartsNoProgramThatIsNotThere) {
    const TempFolder temp;
    EXPECT_FALSE(runProgramAndWait(temp.path() + "missing.exe"));
}

TEST(System, ErrorTextIsOneLine) {
    for (const std::int32_t code : {0, 2, 5, 0x7fffffff}) {
        const std::string text = errorText(code);
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
}

TEST(PosixPaths, TurnRoundBothWays) {
    EXPECT_EQ(fromNative("/home/u/.config"), "\\home\\u\\.config");
    std::string native;
    EXPECT_TRUE(toNative("\\home\\u\\.config\\", native));
    EXPECT_EQ(native, "/home/u/.config/");
}

TEST(PosixPaths, CountUtf16Units) {
    struct Case {
        const char* why;
        std::string text;
        std::size_t units;
    };
    const Case cases[] = {
        {"nothing", "", 0},
        {"one byte a character", "abc", 3},
        {"two bytes", "\xc3\xb6", 1},
        {"three bytes", "\xe6\xb8\xac", 1},
        {"four bytes are two units", "\xf0\x9f\x8e\xb5", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(utf16Length(c.text), c.units);
    }
}

TEST(PosixPaths, ConfigFolderIsThatOfTheEnvironment) {
    struct Case {
        const char* why;
        const char* xdg;
        const char* home;
        std::string folder;
    };
    const Case cases[] = {
        {"the variable", "/etc/user", "/home/u", "\\etc\\user"},
        {"a final slash goes", "/etc/user//", "/home/u", "\\etc\\user"},
        {"unset", nullptr, "/home/u", "\\home\\u\\.config"},
        {"empty", "", "/home/u", "\\home\\u\\.config"},
        {"a relative one does not count", "user", "/home/u", "\\home\\u\\.config"},
        {"no home", nullptr, nullptr, ""},
        {"an empty home", nullptr, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(configFolder(c.xdg, c.home), c.folder);
    }
}
