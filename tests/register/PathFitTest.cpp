#include "apps/velmora-register/PathFit.h"

#include <gtest/gtest.h>

#include <string>

namespace velmora_register {
namespace {

constexpr unsigned latin = 1252;

// As Windows converts: in UTF-8 it takes neither that flag nor the question, and gives nothing.
int countBytes(const std::wstring& text, unsigned codePage, unsigned long flags, bool* isReplaced) {
    if (codePage == utf8CodePage && (flags == noBestFit || isReplaced != nullptr)) return 0;
    int bytes = 0;
    for (const wchar_t letter : text) {
        const bool isBeyond = letter > 0xFF;
        if (codePage == utf8CodePage) {
            bytes += letter < 0x80 ? 1 : letter < 0x800 ? 2 : 3;
            continue;
        }
        ++bytes;
        // With a best fit it would be another letter, and nothing would be replaced.
        if (isBeyond && flags == noBestFit && isReplaced != nullptr) *isReplaced = true;
    }
    return bytes;
}

std::wstring letters(std::size_t count, wchar_t letter) {
    return std::wstring(count, letter);
}

TEST(PathFit, IsJudgedInTheSystemsCodePage) {
    struct Case {
        const char* why;
        unsigned codePage;
        std::wstring path;
        const wchar_t* says;  // a part of it; empty where the path fits
    };
    const Case cases[] = {
        {"plain letters", latin, L"C:\\Velmora\\a.dll", L""},
        {"as long as can be", latin, letters(127, L'a'), L""},
        {"one too long", latin, letters(128, L'a'), L"it has 128 characters"},
        {"a letter of the code page", latin, letters(127, L'\u00E4'), L""},
        {"a letter beyond it", latin, L"C:\\\u97F3\\a.dll", L"letters beyond"},
        {"plain letters in UTF-8", utf8CodePage, L"C:\\Velmora\\a.dll", L""},
        {"as long as can be in UTF-8", utf8CodePage, letters(127, L'a'), L""},
        {"one too long in UTF-8", utf8CodePage, letters(128, L'a'), L"it has 128 characters"},
        {"letters of two bytes", utf8CodePage, letters(64, L'\u00E4'), L"it has 128 characters"},
        {"letters of three bytes, which UTF-8 has", utf8CodePage, letters(42, L'\u97F3'), L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const std::wstring sentence = unfitPath(c.path, c.codePage, countBytes);
        EXPECT_EQ(sentence.empty(), std::wstring(c.says).empty());
        EXPECT_NE(sentence.find(c.says), std::wstring::npos);
    }
}

TEST(PathFit, IsNotGivenWhereTheSystemCannotTell) {
    const auto fails = [](const std::wstring&, unsigned, unsigned long, bool*) { return 0; };
    EXPECT_FALSE(unfitPath(L"C:\\a.dll", latin, fails).empty());
    EXPECT_FALSE(unfitPath(L"C:\\a.dll", utf8CodePage, fails).empty());
}

}  // namespace
}  // namespace velmora_register
