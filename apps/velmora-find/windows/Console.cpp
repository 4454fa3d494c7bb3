#include "apps/velmora-find/Console.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdlib>
#include <cwchar>

#include "platform/windows/Wide.h"

namespace velmora_find {
namespace {

UINT codePageBefore = 0;  // the console stays when the program has ended

}  // namespace

// main() is given the arguments in the system's code page, which has no letters for most names.
std::vector<std::string> startConsole(int, char**) {
    codePageBefore = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    std::atexit([] { SetConsoleOutputCP(codePageBefore); });
    std::vector<std::string> out;
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return out;
    for (int i = 1; i < count; ++i) {
        out.push_back(ZENNO::platform::toUtf8(wide[i], std::wcslen(wide[i])));
    }
    LocalFree(wide);
    return out;
}

}  // namespace velmora_find
