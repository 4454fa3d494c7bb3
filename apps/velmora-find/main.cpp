// velmora-find: who is on the network, what targets tell and let one choose, and why one is not
// found.
#include <atomic>
#include <csignal>
#include <iostream>

#include "apps/console/Console.h"
#include "apps/velmora-find/FinderModule.h"
#include "apps/velmora-find/Options.h"
#include "platform/Terminal.h"

namespace {

std::atomic<bool> interrupted{false};
void onInterrupt(int) {
    interrupted.store(true);
}

}  // namespace

int main(int count, char** values) {
    const auto arguments = velmora_console::startConsole(count, values);
    velmora_find::Context context{ZENNO::systemEnvironment(), std::cout, std::cerr};
    context.isTerminal = ZENNO::platform::errorIsTerminal();
    context.adapters = [](std::vector<ZENNO::platform::Adapter>& out) {
        return ZENNO::platform::listAdapters(ZENNO::platform::familyV6, out);
    };
    context.finder = velmora_find::loadFinder;
    context.onWatch = [] {
        std::signal(SIGINT, onInterrupt);
        std::signal(SIGTERM, onInterrupt);
    };
    context.interrupted = [] { return interrupted.load(); };
    return velmora_find::run(arguments, context);
}
