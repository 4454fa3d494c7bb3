#include "apps/velmora-register/windows/CodePage.h"

#include <gtest/gtest.h>

#include <string>

#include "apps/velmora-register/PathFit.h"

namespace velmora_register {
namespace {

// Whatever code page the machine under test has: each is asked for by its number.
TEST(CodePage, OfTheSystemJudgesAPath) {
    constexpr unsigned latin = 1252;
    const std::wstring plain = L"C:\\Velmora\\a.dll", far = L"C:\\\u97F3\\a.dll";
    EXPECT_TRUE(unfitPath(plain, latin, bytesInCodePage).empty());
    EXPECT_FALSE(unfitPath(far, latin, bytesInCodePage).empty());
    EXPECT_FALSE(unfitPath(std::wstring(128, L'a'), latin, bytesInCodePage).empty());
    EXPECT_TRUE(unfitPath(plain, utf8CodePage, bytesInCodePage).empty());
    EXPECT_TRUE(unfitPath(far, utf8CodePage, bytesInCodePage).empty());
    EXPECT_FALSE(unfitPath(std::wstring(128, L'a'), utf8CodePage, bytesInCodePage).empty());
    EXPECT_FALSE(unfitPath(std::wstring(64, L'\u00E4'), utf8CodePage, bytesInCodePage).empty());
}

}  // namespace
}  // namespace velmora_register
