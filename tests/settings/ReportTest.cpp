#include "apps/velmora-settings/model/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/settings/FilesInMemory.h"

using namespace velmora_settings;
using namespace velmora_test;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Report, HoldsAllThatAHelperAsksFor) {
    FilesInMemory disk;
    disk.content = {{userPath, "Version=1_112_1\r\nSyncBufferCount=1\r\n"},
                    {factoryPath, factoryText},
                    {debugPath, "Debug=enable\n"}};
    Document document = Document::open({"D\\", "R"}, 4, disk.files());
    TargetList targets;
    VELMORA::FinderRecord record;
    record.targetName = "Kitchen\x1b";
    record.sinkNo = 2;
    targets.onFound({{ZENNO::IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 1, 3), record}});
    targets.onFound({});
    const std::string text = reportText(
        document, targets,
        {"A system", "C:\\driver.dll 1_112_1", {"7 Ethernet"}, "Interface Ethernet\r\nasked\r\n"});

    EXPECT_THAT(text, HasSubstr("KORVENTE Velmora 1_112_1\n"));
    EXPECT_THAT(text, HasSubstr("System: A system, 4 physical cores\n"));
    EXPECT_THAT(text, HasSubstr("Driver: C:\\driver.dll 1_112_1\n"));
    EXPECT_THAT(text, HasSubstr("Settings: " + userPath + " (the user's own)\n"));
    EXPECT_THAT(text, HasSubstr("    SyncBufferCount=1\n"));
    EXPECT_THAT(text, HasSubstr("debug.inf:\n    Debug=enable\n"));
    EXPECT_THAT(text, HasSubstr("Note: The driver ignores"));
    EXPECT_THAT(text, HasSubstr("At 44.1 kHz"));
    EXPECT_THAT(text, HasSubstr("Interfaces:\n    7 Ethernet\n"));
    EXPECT_THAT(text, HasSubstr("sink 2, version 0, gone\n"));
    EXPECT_THAT(text, HasSubstr("Doctor:\n    Interface Ethernet\n    asked\n"));
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
    EXPECT_THAT(text, Not(HasSubstr("not written yet")));
    document.setOn(FieldId::phase, true);
    EXPECT_THAT(reportText(document, targets, {}), HasSubstr("not written yet"));
}

TEST(Report, SaysWhereNoFileIs) {
    FilesInMemory disk;
    const Document document = Document::open({"D\\", "R"}, 4, disk.files());
    EXPECT_THAT(reportText(document, TargetList(), {}), HasSubstr("the defaults hold"));
}

}  // namespace
