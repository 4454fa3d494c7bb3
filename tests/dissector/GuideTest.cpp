// docs/wireshark.md beside the dissector: its fields, its filters, its folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "tests/dissector/Talk.h"

namespace velmora_test {
namespace {

std::string guide() {
    std::ifstream file(VELMORA_SOURCE_DIR "/docs/wireshark.md");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> namesIn(const std::string& text) {
    std::set<std::string> names;
    static const std::regex name("velmora\\.[a-z0-9_]+(\\.[a-z0-9_]+)*");
    for (std::sregex_iterator at(text.begin(), text.end(), name), end; at != end; ++at) {
        names.insert(at->str());
    }
    return names;
}

TEST(DissectorGuide, NamesEveryFieldAndNoOther) {
    std::set<std::string> fields;
    for (const std::string& line : tsharkLines("-G fields -X lua_script:" VELMORA_DISSECTOR)) {
        // There are a quarter of a million.
        if (line.find("velmora.") == std::string::npos) continue;
        for (const std::string& name : namesIn(line)) fields.insert(name);
    }
    ASSERT_GT(fields.size(), 200u);
    std::set<std::string> told = namesIn(guide());
    told.erase("velmora.lua");
    told.erase("velmora.support.mask.");
    for (const std::string& name : told) EXPECT_TRUE(fields.contains(name)) << name;
    for (const std::string& name : fields) {
        // One field a bit, told in one line.
        if (name.starts_with("velmora.support.mask.")) continue;
        EXPECT_TRUE(told.contains(name)) << name;
    }
}

TEST(DissectorGuide, ItsFiltersAreFilters) {
    const std::string text = guide();
    const std::size_t from = text.find("## Filters worth knowing"), to = text.find("## Plot");
    ASSERT_LT(from, to);
    static const std::regex row("\n\\| `([^`]*)` \\|");
    const std::string part = text.substr(from, to - from);
    Capture capture;
    capture.add(hostAt(), targetAt(), write(wire::FIND_REQ{}));
    int filters = 0;
    for (std::sregex_iterator at(part.begin(), part.end(), row), end; at != end; ++at) {
        const std::string filter = std::regex_replace((*at)[1].str(), std::regex("\\\\\\|"), "|");
        SCOPED_TRACE(filter);
        dissectedLines(capture, "-Y '" + filter + "'");  // fails where tshark does not take it
        ++filters;
    }
    EXPECT_GT(filters, 10);
}

TEST(DissectorGuide, FeedbackCanBePlotted) {
    Talk talk;
    talk.connect();
    for (const std::uint16_t word : words({0x3000, 0x1000, 0x2000, 0x3000})) talk.feedback(word);
    talk.audio(4);
    const auto lines = dissectedLines(talk.capture,
                                      "-q -z 'io,stat,1,AVG(velmora.feedback)velmora.feedback,"
                                      "SUM(velmora.stream.gap)velmora.stream.gap'");
    bool isThere = false;
    for (const std::string& line : lines) {
        isThere = isThere || (line.find("0.125000") != std::string::npos &&
                              line.find("|   4 |") != std::string::npos);
    }
    EXPECT_TRUE(isThere) << testing::PrintToString(lines);
}

TEST(DissectorGuide, WorksFromThePersonalFolder) {
    Talk talk;
    talk.connect();
    talk.audio(0);
    const auto lines = dissectedLinesWhenInstalled(talk.capture);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[2].find("VELMORA 72 STREAM_DATA 0, 8 bytes, last"), std::string::npos)
        << lines[2];
}

}  // namespace
}  // namespace velmora_test
