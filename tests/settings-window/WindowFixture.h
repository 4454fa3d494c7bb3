// What the tests of the window share: a folder of their own, and the two ways to press OK.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "apps/velmora-settings/windows/Ids.h"
#include "tests/settings-window/Program.h"

namespace velmora_test {

using velmora_settings::FieldId;
using F = FieldId;

constexpr int at(FieldId id) {
    return velmora_settings::fieldControl(id);
}

inline const std::string mine =
    "; mine, and nobody else's\r\n\r\nVersion=1_112_1\nStrange = key\r\n\r\n  CycleTime =  500\r\n"
    "Phase=Invert\r\n[Other]\r\nCycleTime=7";

class SettingsWindow : public testing::Test {
protected:
    void use(const std::string& text) { Folders::write(folders_.settings(), text); }
    std::string file() const { return Folders::read(folders_.settings()); }
    // What is said of a failed OK; the program goes on.
    std::string refusedOk(Program& program) {
        program.pressOk();
        const std::string sentence = narrow(program.readBox());
        EXPECT_FALSE(program.hasEnded());
        return sentence;
    }
    void endByOk(Program& program) {
        program.pressOk();
        EXPECT_TRUE(program.ends());
        EXPECT_EQ(program.exitCode(), 0u);
    }

    Folders folders_;
};

}  // namespace velmora_test
