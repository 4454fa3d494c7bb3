// How a program's command ends: by itself, by a Stop, or by a fault of its own.
#pragma once

#include <exception>
#include <ostream>
#include <string>

namespace velmora_console {

// Thrown where a command cannot go on; caught in one place, which says the sentence.
struct Stop {
    int code;
    std::string sentence;
};

// What a program exits with where its results cannot be written, and where it fails by a fault of
// its own.
struct EndingCodes {
    int unwritten;
    int fault;
};

// Runs `command`, which returns the exit code. Its results go to `out`; whatever keeps it from its
// end is said to `talk`.
template <class Command>
int runToItsEnd(std::ostream& out, std::ostream& talk, EndingCodes codes, const Command& command) {
    const auto complain = [&](int code, const std::string& sentence) {
        talk << sentence << std::endl;
        return code;
    };
    try {
        const int code = command();
        out.flush();
        if (out) return code;
        return complain(codes.unwritten, "The result cannot be written to standard output.");
    } catch (const Stop& stop) {
        out.flush();
        return complain(stop.code, stop.sentence);
    } catch (const std::exception& error) {
        return complain(codes.fault, std::string("The program failed: ") + error.what());
    }
}

}  // namespace velmora_console
