#include "driver/Surroundings.h"

#include "base/Log.h"
#include "platform/System.h"

Surroundings Surroundings::ofThisComputer() {
    return ofThisComputer(ZENNO::systemEnvironment());
}

Surroundings Surroundings::ofThisComputer(ZENNO::Environment& environment) {
    return {environment,
            VELMORA::systemMachine(),
            ZENNO::platform::driverFolder(),
            ZENNO::platform::roamingFolder(),
            [] { ZENNO::createLogger(); },
            [](const std::string& path, const std::function<void()>& onStarted) {
                return ZENNO::platform::runProgramAndWait(path, onStarted);
            }};
}
