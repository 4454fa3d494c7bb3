// tshark with this tree's dissector, over a capture: what it shows of each packet.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/dissector/Capture.h"

namespace velmora_test {

using Fields = std::map<std::string, std::string>;

// One packet as it is shown. Keys are without "velmora." in front.
struct Shown {
    bool isOurs = false;    // the dissector had it
    std::string protocols;  // "ipv6:udp:velmora"
    std::map<std::string, std::vector<std::string>> fields;
    std::map<std::string, std::string> marks;  // expert infos by name, with their text

    bool has(const std::string& field) const { return fields.count(field) != 0; }
    bool isMarked(const std::string& mark) const { return marks.count(mark) != 0; }
    // The one value of a field; "-" where it has none, all of them with commas where there are
    // more.
    std::string operator[](const std::string& field) const;
    // Whether one of the marks says that a reader drops it.
    bool isMalformed() const;
    std::string markNames() const;  // with blanks between them
};

// The whole capture, looked at twice as Wireshark does, so that a request names its answer too. A
// Lua error anywhere fails the test.
std::vector<Shown> dissect(const Capture& capture, const std::string& options = "");
// What else tshark prints: one line a packet, the text of these options. With `hosts`, a table of
// names as in /etc/hosts, addresses have names.
std::vector<std::string> dissectedLines(const Capture& capture, const std::string& options,
                                        const std::string& hosts = "");
// The packet list, with the dissector lying where a user puts it instead of being named.
std::vector<std::string> dissectedLinesWhenInstalled(const Capture& capture);
// Without a capture.
std::vector<std::string> tsharkLines(const std::string& options);

}  // namespace velmora_test
