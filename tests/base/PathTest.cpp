#include "base/Path.h"

#include <gtest/gtest.h>

#include "platform/System.h"
#include "tests/base/TempFolder.h"

using namespace ZENNO;
using velmora_test::TempFolder;

namespace {

struct Cut {
    const char* why;
    const char* path;
    bool result;
    const char* left;
};

void makeFile(const std::string& path) {
    const std::uint8_t byte = 1;
    ASSERT_TRUE(platform::writeWholeFile(path, &byte, 1));
}

}  // namespace

TEST(Path, FolderOfAPath) {
    const Cut cases[] = {
        {"a file", "C:\\a\\b.exe", true, "C:\\a\\"},
        {"a file at the root", "C:\\b.exe", true, "C:\\"},
        {"a bare name", "name", false, "name"},
        {"a folder stays", "C:\\a\\", false, "C:\\a\\"},
        {"nothing", "", false, ""},
        {"a forward slash is a character", "C:/a/b", false, "C:/a/b"},
        {"a name behind a lone backslash", "\\a", true, "\\"},
    };
    for (const Cut& c : cases) {
        SCOPED_TRACE(c.why);
        std::string path = c.path;
        EXPECT_EQ(folderOf(path), c.result);
        EXPECT_EQ(path, c.left);
    }
}

TEST(Path, ParentOfAFolder) {
    const Cut cases[] = {
        {"a folder", "C:\\a\\b\\", true, "C:\\a\\"},
        {"a folder at the root", "C:\\a\\", true, "C:\\"},
        {"a root has none", "C:\\", false, "C:\\"},
        {"a lone backslash has none", "\\", false, "\\"},
        {"a bare folder has none", "a\\", false, "a\\"},
        {"no folder", "C:\\a", false, "C:\\a"},
        {"nothing", "", false, ""},
        {"a double backslash is a folder without a name", "C:\\a\\\\", true, "C:\\a\\"},
    };
    for (const Cut& c : cases) {
        SCOPED_TRACE(c.why);
        std::string folder = c.path;
        EXPECT_EQ(parentFolder(folder), c.result);
        EXPECT_EQ(folder, c.left);
    }
}

TEST(Path, EnsuredFolderEndsInABackslash) {
    struct Case {
        const char* path;
        const char* folder;
    };
    const Case cases[] = {{"C:\\a", "C:\\a\\"}, {"C:\\a\\", "C:\\a\\"}, {"", ".\\"}, {"\\", "\\"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        std::string out = "before";
        ensureFolder(out, c.path);
        EXPECT_EQ(out, c.folder);
    }
    std::string same = "C:\\a";
    ensureFolder(same, same);
    EXPECT_EQ(same, "C:\\a\\");
}

TEST(Path, ModulePathIsTheProgram) {
    std::string path = "before";
    modulePath(path);
    EXPECT_NE(path.find("\\test_base"), std::string::npos) << path;
    EXPECT_TRUE(fileExists(path, /*folder=*/false));
}

TEST(Path, FileExistsTellsFilesFromFolders) {
    const TempFolder temp;
    const std::string folder = temp.makeFolder(u8"a");
    const std::string bare = folder.substr(0, folder.size() - 1);
    makeFile(folder + "file");
    struct Case {
        const char* why;
        std::string path;
        bool asFile, asFolder, atAll;
    };
    const Case cases[] = {
        {"nothing", "", false, false, false},
        {"a folder with its backslash", folder, false, true, true},
        {"a folder without", bare, false, true, true},
        {"a file", folder + "file", true, false, true},
        {"a file with a backslash", folder + "file\\", false, false, true},
        {"a missing name", folder + "missing", false, false, false},
        {"a missing folder", folder + "missing\\", false, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(fileExists(c.path, /*folder=*/false), c.asFile);
        EXPECT_EQ(fileExists(c.path, /*folder=*/true), c.asFolder);
        EXPECT_EQ(pathExists(c.path), c.atAll);
    }
}

TEST(Path, SearchesUpward) {
    const TempFolder temp;
    const std::string deep = temp.makeFolder(u8"a\u00e4/b/c");
    const std::string middle = temp.makeFolder(u8"a\u00e4");
    temp.makeFolder(u8"a\u00e4/goal");
    makeFile(middle + "found.txt");

    std::string folder = deep;
    EXPECT_TRUE(searchUpward(folder, "found.txt"));
    EXPECT_EQ(folder, middle + "found.txt");

    folder = deep;
    EXPECT_TRUE(searchUpward(folder, "goal\\"));
    EXPECT_EQ(folder, middle + "goal\\");

    folder = deep;
    EXPECT_FALSE(searchUpward(folder, "goal")) << "a folder is no file";
    EXPECT_EQ(folder, deep);

    folder = deep;
    EXPECT_FALSE(searchUpward(folder, "no such name at all"));
    EXPECT_EQ(folder, deep);

    folder = deep.substr(0, deep.size() - 1);
    const std::string noFolder = folder;
    EXPECT_FALSE(searchUpward(folder, "found.txt"));
    EXPECT_EQ(folder, noFolder);

    folder.clear();
    EXPECT_FALSE(searchUpward(folder, ""));
    EXPECT_EQ(folder, "");
}
