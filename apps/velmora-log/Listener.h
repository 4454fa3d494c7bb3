// Hears the log: a thread that takes each datagram as it comes and notes when, so that a slow
// terminal or disk delays the lines and loses none.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "src/Network/Environment.h"

namespace velmora_log {

struct Heard {
    std::int64_t unixMicros = 0;
    std::uint16_t port = 0;  // of the sender
    std::string datagram;
};

class Listener {
public:
    static constexpr std::size_t mostWaiting = 50'000;  // datagrams; more are counted as lost

    ~Listener();
    // Throws Stop. Port 0 is any that is free.
    void open(std::uint16_t port);
    std::uint16_t port() const { return port_; }

    // What has come since the last call; waits for so long where nothing has. False once the socket
    // has failed and all it heard is taken.
    bool take(std::vector<Heard>& out, std::uint32_t waitMicros);
    std::uint64_t lost() const { return lost_.load(std::memory_order_relaxed); }
    void close();  // what was sent until now is still heard

private:
    void listen();

    std::unique_ptr<ZENNO::Link> link_;
    std::uint16_t port_ = 0;
    std::atomic<bool> ends_{false};       // set by close, read by the thread
    std::atomic<std::uint64_t> lost_{0};  // counted by the thread
    std::mutex mutex_;                    // over the two below
    std::deque<Heard> waiting_;
    bool hasEnded_ = false;
    std::condition_variable came_;
    std::thread thread_;
};

}  // namespace velmora_log
