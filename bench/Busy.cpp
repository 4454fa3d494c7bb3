#include "bench/Busy.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace velmora_bench {

Busy::Busy() {
    const unsigned cores = std::thread::hardware_concurrency();
    for (unsigned i = 0; i < cores; ++i) {
        const pid_t process = ::fork();
        if (process < 0) break;
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (std::atomic<unsigned> turns{0};;) turns.fetch_add(1, std::memory_order_relaxed);
        }
        processes_.push_back(process);
    }
}

Busy::~Busy() {
    for (const pid_t process : processes_) ::kill(process, SIGKILL);
    for (const pid_t process : processes_) ::waitpid(process, nullptr, 0);
}

}  // namespace velmora_bench
