// What the tests of discovery stand on: a network in memory, a captured log, a Find on both.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "find/Find.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedTarget.h"

namespace velmora_test {

namespace wire = VELMORA::wire;
using testing::ElementsAre;
using testing::IsEmpty;
using VELMORA::Find;
using VELMORA::FindSetting;
using VELMORA::TargetInfo;
using VELMORA::TargetMap;
using Manner = ScriptedTarget::Manner;

constexpr std::uint32_t eth0 = 3;  // the interface that a FakeNetwork has at first

// fe80::<last> on an interface.
inline IPAddress linkLocal(std::uint16_t last, std::uint16_t port = 0, std::uint32_t scope = eth0) {
    return IPAddress::of({0xfe80, 0, 0, 0, 0, 0, 0, last}, port, scope);
}
// A target's control address: port 19642.
inline IPAddress control(std::uint16_t last, std::uint32_t scope = eth0) {
    return linkLocal(last, 19642, scope);
}

class FindTest : public testing::Test {
protected:
    // A Find made of `setting` as it stands, open on every interface.
    Find& opened() {
        find_ = std::make_unique<Find>(setting, network);
        EXPECT_TRUE(find_->open());
        log.clear();
        network.clearSent();
        return *find_;
    }
    void addInterface(const IPAddress& address, const std::string& name) {
        network.interfaces[address] = {name, "adapter " + name};
    }
    // µs of simulated time that `what` takes.
    template <class What>
    std::uint64_t duration(What what) {
        const std::uint64_t before = network.time.time();
        what();
        return network.time.time() - before;
    }
    // What the host sent, as it went out.
    std::vector<Datagram> sentByHost() const {
        std::vector<Datagram> out;
        for (const Datagram& datagram : network.sent) {
            if (datagram.toPeer) out.push_back(datagram);
        }
        return out;
    }

    FakeNetwork network;
    LogCapture log{7};
    FindSetting setting;

private:
    std::unique_ptr<Find> find_;
};

}  // namespace velmora_test
