#include "apps/console/Console.h"

#include <windows.h>

#include <shellapi.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cwchar>

#include "platform/windows/Wide.h"

namespace velmora_console {
namespace {

UINT codePageBefore = 0;  // the console stays when the program has ended

// Set by the handlers, which run on threads of the system's, read by the program.
std::atomic<bool> isInterrupted{false}, isAsked{false};

// The system takes a handler away when it calls it.
void onInterrupt(int number) {
    std::signal(number, onInterrupt);
    isInterrupted.store(true);
}
void onAsked(int number) {
    std::signal(number, onAsked);
    isAsked.store(true);
}

}  // namespace

const char* const askingKey = "Ctrl-Break";

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

void listenForSignals() {
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    std::signal(SIGBREAK, onAsked);
}

bool interrupted() {
    return isInterrupted.load();
}

bool takeAsked() {
    return isAsked.exchange(false);
}

}  // namespace velmora_console
