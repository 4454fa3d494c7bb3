#include "bench/Tracer.h"

#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace velmora_bench {
namespace {

// A call that nobody else makes: closes no descriptor that there could be, and says who.
constexpr std::uint64_t markBase = 0x6d000000;

struct Watched {
    bool counts = false;
    TracedThread thread;

    void onEntry(long number, std::uint64_t argument) {
        if (number == SYS_close && argument > markBase) {
            counts = !counts;
            if (counts) thread = {static_cast<int>(argument - markBase), {}};
            return;
        }
        if (counts) ++thread.calls[number];
    }
};

[[noreturn]] void beTraced(const std::function<void()>& work) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    try {
        work();
        ::_exit(0);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        ::_exit(1);
    }
}

void resume(pid_t thread, int signal) {
    ::ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<std::intptr_t>(signal));
}

}  // namespace

void markThread(int who) noexcept {
    ::syscall(SYS_close, markBase + static_cast<std::uint64_t>(who));
}

std::vector<TracedThread> traceCalls(const std::function<void()>& work) {
    const pid_t process = ::fork();
    if (process < 0) throw std::runtime_error("no process");
    if (process == 0) beTraced(work);

    int status = 0;
    ::waitpid(process, &status, 0);
    const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    if (!WIFSTOPPED(status) || ::ptrace(PTRACE_SETOPTIONS, process, nullptr, options) != 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        throw std::runtime_error("system calls cannot be traced here");
    }
    std::map<pid_t, Watched> threads;
    resume(process, 0);
    for (;;) {
        const pid_t at = ::waitpid(-1, &status, __WALL);
        if (at < 0) break;
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            if (at == process) break;
            continue;
        }
        int signal = WSTOPSIG(status);
        if (signal == (SIGTRAP | 0x80)) {
            __ptrace_syscall_info call{};
            ::ptrace(PTRACE_GET_SYSCALL_INFO, at, sizeof call, &call);
            if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
                threads[at].onEntry(static_cast<long>(call.entry.nr), call.entry.args[0]);
            }
            signal = 0;
        } else if (signal == SIGTRAP || signal == SIGSTOP) {
            signal = 0;  // a thread is new, or has been told to wait for us
        }
        resume(at, signal);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("the traced work failed");
    }
    std::vector<TracedThread> seen;
    for (auto& [id, watched] : threads) {
        if (watched.thread.mark != 0) seen.push_back(std::move(watched.thread));
    }
    return seen;
}

std::string systemCallName(long number) {
    static const std::map<long, const char*> names = {
        {SYS_sendto, "sendto"},
        {SYS_sendmsg, "sendmsg"},
        {SYS_sendmmsg, "sendmmsg"},
        {SYS_recvfrom, "recvfrom"},
        {SYS_recvmsg, "recvmsg"},
        {SYS_select, "select"},
        {SYS_pselect6, "pselect6"},
        {SYS_poll, "poll"},
        {SYS_ppoll, "ppoll"},
        {SYS_ioctl, "ioctl"},
        {SYS_fcntl, "fcntl"},
        {SYS_futex, "futex"},
        {SYS_sched_yield, "yield"},
        {SYS_read, "read"},
        {SYS_write, "write"},
        {SYS_epoll_wait, "epoll"},
        {SYS_epoll_pwait2, "epoll"},
        {SYS_brk, "brk"},
        {SYS_clock_gettime, "clock_gettime"},
        {SYS_clock_nanosleep, "nanosleep"},
        {SYS_mmap, "mmap"},
        {SYS_munmap, "munmap"},
        {SYS_madvise, "madvise"},
    };
    const auto found = names.find(number);
    return found != names.end() ? found->second : "call " + std::to_string(number);
}

}  // namespace velmora_bench
