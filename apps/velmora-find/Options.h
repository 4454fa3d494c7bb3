// What the command line says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "apps/velmora-find/Context.h"

namespace velmora_find {

struct Options {
    bool all = false, json = false, kept = false, keep = false;
    int verbose = 0;  // 1: what happens; 2: every datagram besides
    std::string interface, dll;
    std::optional<double> seconds;
    std::string address, label, value, file;
    std::optional<std::string> text;
    std::uint32_t channel = 0;
    std::uint64_t limit = 0;
};

// The whole program but for what main() makes: reads the arguments (without the program's name),
// runs the command and gives the exit code.
int run(const std::vector<std::string>& arguments, Context& context);

}  // namespace velmora_find
