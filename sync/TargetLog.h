// The target's own log lines, shown in ours. A thread of its own with a socket of its own, only
// while the log level asks for it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "src/Network/Environment.h"
#include "sync/Machine.h"

namespace VELMORA {

class TargetLog {
public:
    explicit TargetLog(ZENNO::Environment& environment);
    TargetLog(const TargetLog&) = delete;
    TargetLog& operator=(const TargetLog&) = delete;
    ~TargetLog();  // closes and joins

    // ---- the session's thread ----
    bool open(std::uint16_t scope);  // the socket alone
    void start(Machine& machine);    // the thread, at log level 6 and above
    void closeSocket();              // ends the thread, but does not wait for it
    void join();
    // From now on the lines of this target; asked for with LOG_REQ by the thread.
    void ask(const ZENNO::IPAddress& controlAddress);

    ZENNO::IPAddress logTarget() const;
    bool logRequest() const noexcept { return logRequest_.load(std::memory_order_acquire) != 0; }
    ZENNO::Link& logSocket() noexcept { return *logSocket_; }

    // The thread's loop: until the socket closes. Public for tests, which run it on their own
    // thread.
    void run();

private:
    void sendRequest();
    void showLine(ZENNO::BufferCS_const datagram);

    ZENNO::Clock& clock_;
    std::unique_ptr<ZENNO::Link> logSocket_;
    std::thread logThread_;
    std::atomic<std::uint8_t> logRequest_{0};  // session's thread sets, log thread clears
    mutable std::mutex targetMutex_;           // over logTarget_, for the length of a copy
    ZENNO::IPAddress logTarget_{};
};

}  // namespace VELMORA
