// The discovery program in memory: a network, a target on it, and what a command said.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "apps/velmora-find/ExitCode.h"
#include "apps/velmora-find/Options.h"
#include "driver/Finder.h"
#include "driver/Product.h"
#include "tests/support/ScriptedTarget.h"

namespace velmora_test {

namespace wire = VELMORA::wire;
using Manner = ScriptedTarget::Manner;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using velmora_find::Json;

inline IPAddress onLink(std::uint16_t last, std::uint16_t port = 19642, std::uint32_t scope = 3) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last}, port, scope);
}

// One setting of a scripted target, as it goes over the wire.
struct WireItem {
    std::uint16_t type = 0, lower = 0, upper = 0;
    std::string label;
    std::uint16_t current = 0, second = 0;
    std::string text;
    std::vector<std::string> choices;  // from `lower` on
};

class FindWorld : public testing::Test {
protected:
    FindWorld() {
        target.name = "DAC";
        target.product = ProductID;
        target.configText = "http://[myaddress]/";
        target.sinks = {{19650, 1, "Main"}};
        context.localTime = [] { return ZENNO::platform::LocalTime{0, 1, 9, 8, 7}; };
        context.finder = [this](const std::string& dll) {
            dllAsked = dll;
            return velmora_find::FinderPointer(
                new VELMORA::asio_velmora_find(driverProductName, "", driverReleaseText,
                                               Surroundings::ofThisComputer(network)),
                [](VELMORA::asio_velmora_find_call* finder) { delete finder; });
        };
    }

    int run(const std::vector<std::string>& arguments) {
        out.str("");
        talk.str("");
        return velmora_find::run(arguments, context);
    }
    Json json() const { return Json::parse(out.str()); }

    // Answers for settings: written values are held until they are committed.
    void offerItems();
    // Answers for transfers: everything is taken.
    void offerChannels(std::uint16_t channels = 1);
    static std::uint16_t slowCrc(const Bytes& data);

    FakeNetwork network;
    std::ostringstream out, talk;
    velmora_find::Context context{network, out, talk};
    ScriptedTarget target{network, onLink(2)};
    std::string dllAsked;

    std::vector<WireItem> items, held;
    std::vector<std::uint16_t> commits;  // modes
    Bytes received;
};

}  // namespace velmora_test
