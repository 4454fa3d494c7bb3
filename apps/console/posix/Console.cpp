#include "apps/console/Console.h"

#include <atomic>
#include <csignal>

namespace velmora_console {
namespace {

// Set by the handlers, read by the program.
std::atomic<bool> isInterrupted{false}, isAsked{false};

void onInterrupt(int) {
    isInterrupted.store(true);
}
void onAsked(int) {
    isAsked.store(true);
}

}  // namespace

const char* const askingKey = "Ctrl-\\";

std::vector<std::string> startConsole(int count, char** values) {
    return {values + (count > 0 ? 1 : 0), values + count};
}

void listenForSignals() {
    for (const int end : {SIGINT, SIGTERM}) std::signal(end, onInterrupt);
    // Who started it to outlive the terminal has said so already.
    if (std::signal(SIGHUP, onInterrupt) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
    for (const int ask : {SIGQUIT, SIGUSR1}) std::signal(ask, onAsked);
    std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted() {
    return isInterrupted.load();
}

bool takeAsked() {
    return isAsked.exchange(false);
}

}  // namespace velmora_console
