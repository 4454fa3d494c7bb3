#include "bench/Child.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace velmora_bench {

bool writeAll(int to, const void* data, std::size_t size) {
    const auto* at = static_cast<const char*>(data);
    while (size != 0) {
        const ssize_t n = ::write(to, at, size);
        if (n <= 0) return false;
        at += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

bool readAll(int from, void* data, std::size_t size) {
    auto* at = static_cast<char*>(data);
    while (size != 0) {
        const ssize_t n = ::read(from, at, size);
        if (n <= 0) return false;
        at += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

Child::Child(const Body& body) {
    std::array<int, 2> order{}, result{};
    if (::pipe(order.data()) != 0 || ::pipe(result.data()) != 0) {
        throw std::runtime_error("no pipe");
    }
    process_ = ::fork();
    if (process_ < 0) throw std::runtime_error("no process");
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(order[1]);
        ::close(result[0]);
        try {
            body(order[0], result[1]);
            ::_exit(0);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "%s\n", e.what());
            ::_exit(1);
        }
    }
    ::close(order[0]);
    ::close(result[1]);
    order_ = order[1];
    result_ = result[0];
}

Child::~Child() {
    askToEnd();
    ::close(result_);
    ::waitpid(process_, nullptr, 0);
}

// A word, not the pipe's end alone: processes forked meanwhile hold that end too.
void Child::askToEnd() {
    if (order_ < 0) return;
    writeAll(order_, "e", 1);
    ::close(order_);
    order_ = -1;
}

void Child::endedEarly() {
    throw std::runtime_error("a process of the bench ended early");
}

}  // namespace velmora_bench
