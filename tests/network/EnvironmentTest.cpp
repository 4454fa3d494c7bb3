#include "src/Network/Environment.h"

#include <gtest/gtest.h>

#include "src/Network/Socket.h"

namespace {

using namespace ZENNO;

TEST(Environment, OfTheProductIsRealAndOne) {
    Environment& environment = systemEnvironment();
    EXPECT_EQ(&environment, &systemEnvironment());
    EXPECT_EQ(&environment.clock(), &systemClock());

    const std::unique_ptr<Link> link = environment.makeLink();
    EXPECT_FALSE(link->isOpen());
    EXPECT_NE(dynamic_cast<Socket*>(link.get()), nullptr);

    LocalInterfaceMap own, mine;
    EXPECT_EQ(environment.localAddressesV6(own), getMyLocalAddresV6(mine));
    EXPECT_EQ(own.size(), mine.size());
}

}  // namespace
