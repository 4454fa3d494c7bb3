// Keeps every core busy with processes of the default class, until it goes.
#pragma once

#include <sys/types.h>

#include <vector>

namespace velmora_bench {

class Busy {
public:
    Busy();
    ~Busy();
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::vector<pid_t> processes_;
};

}  // namespace velmora_bench
