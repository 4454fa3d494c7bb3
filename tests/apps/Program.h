// A program as it is built, run once: what it prints and what it exits with.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "tests/apps/Scratch.h"

namespace velmora_test {

class Program {
public:
    explicit Program(std::string file) : file_(std::move(file)) {}

    // Exit code of the program with `arguments`, as a shell reads them; -1 if it did not exit by
    // itself.
    int run(const std::string& arguments) {
        const std::string out = scratch.path("out"), err = scratch.path("err");
        const std::string command = file_ + " " + arguments + " >" + out + " 2>" + err;
        const int status = std::system(command.c_str());
        output = contents(out);
        errors = contents(err);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    Scratch scratch;
    std::string output, errors;  // of the last run

private:
    std::string file_;
};

}  // namespace velmora_test
