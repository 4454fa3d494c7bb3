#include "base/Err.h"

#include <gtest/gtest.h>

using ZENNO::Err;

TEST(Err, ReportsItselfOnStandardError) {
    testing::internal::CaptureStderr();
    const Err err("src/Network/Socket.cpp", 76);
    std::string said = testing::internal::GetCapturedStderr();
    std::erase(said, '\r');  // a line end where standard error is a text stream
    EXPECT_EQ(said, "\nZENNO ASSERT[src/Network/Socket.cpp]Line:76[code:0 Data:0]\n");
    EXPECT_EQ(err.file, "src/Network/Socket.cpp");
    EXPECT_EQ(err.line, 76u);
    EXPECT_EQ(err.code, 0u);
    EXPECT_EQ(err.data, 0u);
}

TEST(Err, CarriesCodeAndData) {
    testing::internal::CaptureStderr();
    const Err err("a", 4294967295u, 4294967294u, 7);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.report(), "\nZENNO ASSERT[a]Line:4294967295[code:4294967294 Data:7]\n");
}

TEST(Err, IsAnExceptionOfTheLibrary) {
    testing::internal::CaptureStderr();
    EXPECT_THROW(throw Err("a", 1), std::exception);
    testing::internal::GetCapturedStderr();
}
