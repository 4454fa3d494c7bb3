#include "src/Network/Startup.h"

#include <gtest/gtest.h>

#include "base/Err.h"
#include "src/Network/Socket.h"

namespace {

using ZENNO::Err;
using ZENNO::platform::NetworkStart;

TEST(Startup, ThrowsByTheKindOfFailure) {
    const struct {
        const char* why;
        NetworkStart start;
        std::uint32_t line;
        const char* report;
    } cases[] = {
        {"no hook at the process's exit", NetworkStart::noExitHook, 76,
         "\nZENNO ASSERT[src/Network/Socket.cpp]Line:76[code:0 Data:0]\n"},
        {"no sockets", NetworkStart::failed, 79,
         "\nZENNO ASSERT[src/Network/Socket.cpp]Line:79[code:0 Data:0]\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        testing::internal::CaptureStderr();
        try {
            ZENNO::requireStarted(c.start);
            ADD_FAILURE() << "nothing thrown";
        } catch (const Err& err) {
            EXPECT_EQ(err.file, "src/Network/Socket.cpp");
            EXPECT_EQ(err.line, c.line);
            EXPECT_EQ(err.code, 0u);
            EXPECT_EQ(err.data, 0u);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.report);
    }
    EXPECT_NO_THROW(ZENNO::requireStarted(NetworkStart::ready));
}

TEST(Startup, IsAskedForOnceAndKept) {
    const ZENNO::Socket first;
    // The process has its network by now, so that a start which would fail is not even tried.
    EXPECT_NO_THROW(ZENNO::startNetworkOnce([]() noexcept { return NetworkStart::failed; }));
}

}  // namespace
