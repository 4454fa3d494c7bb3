// velmora-log: what the driver logs, on a terminal, in a file, and in figures of punctuality.
#include <cstdlib>
#include <iostream>

#include "apps/console/Console.h"
#include "apps/velmora-log/Options.h"
#include "platform/Terminal.h"

int main(int count, char** values) {
    const auto arguments = velmora_console::startConsole(count, values);
    velmora_log::Context context{std::cout, std::cerr};
    context.takesColours = ZENNO::platform::outputTakesColours();
    const char* const noColour = std::getenv("NO_COLOR");
    context.noColour = noColour != nullptr && *noColour != '\0';
    context.onListen = velmora_console::listenForSignals;
    context.interrupted = velmora_console::interrupted;
    context.takeAsked = velmora_console::takeAsked;
    context.askingKey = velmora_console::askingKey;
    return velmora_log::run(arguments, context);
}
