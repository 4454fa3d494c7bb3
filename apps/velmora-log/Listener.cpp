#include "apps/velmora-log/Listener.h"

#include <chrono>
#include <iterator>
#include <utility>

#include "apps/log/LogPort.h"
#include "apps/velmora-log/ExitCode.h"

namespace velmora_log {
namespace {

constexpr std::uint32_t lookEvery = 50'000;  // µs
constexpr std::uint64_t longestDatagram = 65'535;

std::int64_t unixNow() {
    namespace c = std::chrono;
    return c::duration_cast<c::microseconds>(c::system_clock::now().time_since_epoch()).count();
}

}  // namespace

Listener::~Listener() {
    close();
}

void Listener::open(std::uint16_t port) {
    link_ = ZENNO::systemEnvironment().makeLink();
    ZENNO::IPAddress local = ZENNO::IPAddress::loopbackV6(port);
    const PortAnswer answer = openLogPort(*link_, local);
    if (answer != PortAnswer::open) throw Stop{exitNetwork, whyNotHeard(answer, port)};
    port_ = local.portNumber();
    link_->readerSize = longestDatagram;
    thread_ = std::thread([this] { listen(); });
}

void Listener::close() {
    ends_.store(true, std::memory_order_release);
    if (thread_.joinable()) thread_.join();
}

bool Listener::take(std::vector<Heard>& out, std::uint32_t waitMicros) {
    std::unique_lock lock(mutex_);
    came_.wait_for(lock, std::chrono::microseconds(waitMicros),
                   [this] { return !waiting_.empty() || hasEnded_; });
    out.assign(std::make_move_iterator(waiting_.begin()), std::make_move_iterator(waiting_.end()));
    waiting_.clear();
    return !out.empty() || !hasEnded_;
}

void Listener::listen() {
    ZENNO::Bytes bytes;
    ZENNO::IPAddress from;
    // After the end was asked for, what is there already is still taken; no more than a socket
    // holds, for somebody may go on sending.
    constexpr int mostAtTheEnd = 10'000;
    int left = mostAtTheEnd;
    while (left > 0) {
        const bool ends = ends_.load(std::memory_order_acquire);
        if (ends) --left;
        const int ready = link_->waitReadable(ends ? 0 : lookEvery);
        if (ready == ZENNO::waitReady && link_->receiveFrom(bytes, from)) {
            if (bytes.empty()) continue;
            Heard heard{unixNow(), from.portNumber(), {bytes.begin(), bytes.end()}};
            const std::lock_guard lock(mutex_);
            if (waiting_.size() < mostWaiting) {
                waiting_.push_back(std::move(heard));
            } else {
                lost_.fetch_add(1, std::memory_order_relaxed);
            }
            came_.notify_one();
            continue;
        }
        if (ends || ready == ZENNO::waitError) break;
    }
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    came_.notify_one();
}

}  // namespace velmora_log
