// What a driver object stands in: the world outside, the machine, and the user's files. The
// product's are ofThisComputer(); a test brings its own.
#pragma once

#include <functional>
#include <string>

#include "src/Network/Environment.h"
#include "sync/Machine.h"

struct Surroundings {
    // As the constructor of a driver in a host's process has it.
    static Surroundings ofThisComputer();
    static Surroundings ofThisComputer(ZENNO::Environment& environment);

    ZENNO::Environment& environment;
    VELMORA::Machine& machine;
    std::string driverFolder;   // ends in a backslash
    std::string roamingFolder;  // does not
    std::function<void()> openLog;
    // False, at once, where the program could not be started; else `onStarted`, and true when it
    // has ended.
    std::function<bool(const std::string& path, const std::function<void()>& onStarted)>
        runProgramAndWait;
};
