// watch with its real thread, on a network in memory that bears several.
#include <atomic>
#include <sstream>

#include "tests/apps/FindWorld.h"
#include "tests/support/LiveNetwork.h"

namespace velmora_test {
namespace {

std::vector<Bytes> serve(const Bytes& datagram) {
    const auto packet = wire::readPacket(datagram);
    if (!packet) return {};
    switch (packet->id()) {
        case wire::FIND_REQ::id:
            return {write(wire::FIND_ANS{.productID = ProductID, .targetName = "DAC"})};
        case wire::HELLO_REQ::id:
            return {write(wire::HELLO_ANS{})};
        case wire::SINK_REQ::id:
            return {packet->arg16(8) == 0 ? write(wire::SINK_ANS{.count = 1})
                                          : write(wire::SINK_ANS{.port = 19650, .version = 1})};
        default:
            return {};
    }
}

class FindWatchLive : public testing::Test {
protected:
    int run(const std::vector<std::string>& arguments) {
        return velmora_find::run(arguments, context);
    }
    LiveNetwork network;
    std::ostringstream out, talk;
    velmora_find::Context context{network, out, talk};
};

TEST_F(FindWatchLive, ShowsATargetThatIsThereAndEndsWhenAskedTo) {
    network.attach(onLink(2), serve);
    bool armed = false;
    context.onWatch = [&] { armed = true; };
    // The user's interrupt comes once the target has been shown.
    context.interrupted = [&] { return out.str().find("DAC") != std::string::npos; };
    EXPECT_EQ(run({"watch", "--seconds", "60"}), velmora_find::exitDone);
    EXPECT_TRUE(armed);
    EXPECT_THAT(out.str(), HasSubstr("+ DAC  fe80::2%eth0  sink 1, version 1\n"));
}

TEST_F(FindWatchLive, EndsInItsFirstSearchThatFindsNobody) {
    EXPECT_EQ(run({"watch", "--seconds", "0.1"}), velmora_find::exitDone);
    EXPECT_THAT(out.str(), IsEmpty());
}

}  // namespace
}  // namespace velmora_test
