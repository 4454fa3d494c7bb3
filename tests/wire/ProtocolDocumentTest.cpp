// docs/protocol.md beside the code: its list of messages, its examples, its session.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "tests/wire/Golden.h"
#include "tests/wire/Messages.h"

namespace {

using namespace velmora_test;
using ZENNO::Bytes;

// The document is looked for from the working folder upward: tests run somewhere below the tree.
std::filesystem::path documentPath() {
    namespace fs = std::filesystem;
    for (fs::path folder = fs::current_path();; folder = folder.parent_path()) {
        if (fs::exists(folder / "docs" / "protocol.md")) return folder / "docs" / "protocol.md";
        if (folder == folder.parent_path()) return {};
    }
}

std::vector<std::string> document() {
    std::ifstream in(documentPath());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// The lines of all blocks that open with this fence.
std::vector<std::string> blocks(const std::string& fence) {
    std::vector<std::string> out;
    bool wanted = false, inside = false;
    for (const std::string& line : document()) {
        if (line.starts_with("```")) {
            inside = !inside;
            wanted = inside && line == fence;
        } else if (wanted) {
            out.push_back(line);
        }
    }
    return out;
}

TEST(ProtocolDocument, ListsEveryMessageWithItsId) {
    const std::map<std::string, int> messages = {
        {"SUPPORT_REQ", w::SUPPORT_REQ::id},
        {"SUPPORT_ANS", w::SUPPORT_ANS::id},
        {"LATENCY_REQ", w::LATENCY_REQ::id},
        {"LATENCY_ANS", w::LATENCY_ANS::id},
        {"DATASIZE_REQ", w::DATASIZE_REQ::id},
        {"DATASIZE_ANS", w::DATASIZE_ANS::id},
        {"PROFILE_REQ", w::PROFILE_REQ::id},
        {"PROFILE_ANS", w::PROFILE_ANS::id},
        {"NOPBREAK_REQ", w::NOPBREAK_REQ::id},
        {"CONNECTPRE_REQ", w::CONNECTPRE_REQ::id},
        {"CONNECTPRE_ANS", w::CONNECTPRE_ANS::id},
        {"CLIENT_REQ", w::CLIENT_REQ::id},
        {"CLIENT_ANS", w::CLIENT_ANS::id},
        {"CONNECT_REQ", w::CONNECT_REQ::id},
        {"CONNECT_ANS", w::CONNECT_ANS::id},
        {"DSICONNECT_REQ", w::DSICONNECT_REQ::id},
        {"DSICONNECT_ANS", w::DSICONNECT_ANS::id},
        {"STREAM_DATA", w::STREAM_DATA::id},
        {"INFO_ANS", w::INFO_ANS::id},
        {"LOG_REQ", w::LOG_REQ::id},
        {"LOG_ANS", w::LOG_ANS::id},
        {"FIND_REQ", w::FIND_REQ::id},
        {"FIND_ANS", w::FIND_ANS::id},
        {"SINK_REQ", w::SINK_REQ::id},
        {"SINK_ANS", w::SINK_ANS::id},
        {"CONFIG_REQ", w::CONFIG_REQ::id},
        {"CONFIG_ANS", w::CONFIG_ANS::id},
        {"HELLO_REQ", w::HELLO_REQ::id},
        {"HELLO_ANS", w::HELLO_ANS::id},
        {"NOTIFY", w::NOTIFY::id},
        {"TRANSFER_REQ", w::TRANSFER_REQ::id},
        {"TRANSFER_ANS", w::TRANSFER_ANS::id},
        {"TRANSFER_DATA", w::TRANSFER_DATA::id},
        {"TRANSFER_ACK", w::TRANSFER_ACK::id},
        {"TRANSFEREND_REQ", w::TRANSFEREND_REQ::id},
        {"TRANSFEREND_ANS", w::TRANSFEREND_ANS::id},
        {"INFOA_REQ", w::INFOA_REQ::id},
        {"INFOA_ANS", w::INFOA_ANS::id},
        {"INFOB_REQ", w::INFOB_REQ::id},
        {"INFOB_ANS", w::INFOB_ANS::id},
        {"VALUE_REQ", w::VALUE_REQ::id},
        {"VALUE_ANS", w::VALUE_ANS::id},
        {"INFOINDEX_REQ", w::INFOINDEX_REQ::id},
        {"INFOINDEX_ANS", w::INFOINDEX_ANS::id},
        {"ITEM_REQ", w::ITEM_REQ::id},
        {"ITEM_ANS", w::ITEM_ANS::id},
        {"ITEMVALUE_REQ", w::ITEMVALUE_REQ::id},
        {"ITEMVALUE_ANS", w::ITEMVALUE_ANS::id},
    };
    ASSERT_EQ(messages.size(), AllMessages::ids.size());
    // Rows of the form: | id | `NAME` | ... in the one section that lists them all.
    std::map<std::string, int> listed;
    bool inside = false;
    for (const std::string& line : document()) {
        if (line.starts_with("## ")) inside = line == "## All messages";
        if (!inside) continue;
        std::istringstream words(line);
        std::string bar1, id, bar2, name, bar3;
        words >> bar1 >> id >> bar2 >> name >> bar3;
        const bool isRow = bar1 == "|" && bar2 == "|" && bar3 == "|" && name.size() > 2 &&
                           name.front() == '`' && name.back() == '`' &&
                           id.find_first_not_of("0123456789") == std::string::npos;
        if (isRow) listed[name.substr(1, name.size() - 2)] = std::stoi(id);
    }
    EXPECT_EQ(listed, messages);
}

TEST(ProtocolDocument, ShowsAnExampleOfEveryMessageAndOnlyTestedOnes) {
    std::map<std::string, std::uint16_t> goldens;
    for (const Golden& g : allGoldens()) goldens[asHex(g.bytes)] = g.id;
    std::set<std::uint16_t> shown;
    for (const std::string& line : blocks("```datagram")) {
        const auto found = goldens.find(asHex(hex(line)));
        EXPECT_NE(found, goldens.end()) << line;
        if (found != goldens.end()) shown.insert(found->second);
    }
    EXPECT_EQ(shown, std::set<std::uint16_t>(AllMessages::ids.begin(), AllMessages::ids.end()));
}

// The groups of digits in front of the remark.
std::string digitsOf(const std::string& text) {
    std::istringstream words(text);
    std::string digits;
    for (std::string word; words >> word;) {
        const bool isGroup = word.size() >= 4 && word.size() % 2 == 0 &&
                             word.find_first_not_of("0123456789abcdef") == std::string::npos;
        if (!isGroup) break;
        digits += word;
    }
    return digits;
}

// Each line: who sends, a port for the host's, from column 10 on the datagram, a remark.
TEST(ProtocolDocument, ShowsASessionOfSoundDatagramsInWhichAnswersFollowTheirRequests) {
    int datagrams = 0, lastId = -1;
    for (const std::string& line : blocks("```")) {
        if (!line.starts_with('>') && !line.starts_with('<')) continue;
        SCOPED_TRACE(line);
        if (line.find("....") != std::string::npos) {  // the one packet that is too long to show
            lastId = w::STREAM_DATA::id;
            continue;
        }
        ++datagrams;
        const Bytes bytes = hex(digitsOf(line.substr(10)));
        const auto packet = w::readPacket(bytes);
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(w::lengthInSizeWord(packet->sizeWord()), bytes.size());
        EXPECT_EQ(AllMessages::takers(*packet), 1);
        if (line.front() == '<') {
            EXPECT_EQ(packet->id(), lastId + 1);
        }
        lastId = packet->id();
    }
    EXPECT_EQ(datagrams, 19);
}

}  // namespace
