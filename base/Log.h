// Where finished log lines go: one syslog datagram a line to the loopback address, where a viewer
// may listen; the system keeps no log file. A callback may take the lines instead, or as well.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/IPAddress.h"
#include "base/LogLine.h"

namespace ZENNO {

namespace platform {
struct LocalTime;
}
class Socket;

// Gets the whole message, header included, closed by NUL. On the thread whose line ended; several
// at once.
using LogCallback = void (*)(const char* message);

constexpr std::uint16_t logPort = 19640;
constexpr std::uint32_t logFacility = 16;  // local0

class Logger final : public LogSink {
public:
    Logger();  // throws Err when the system's network does not start
    ~Logger() override;

    // Stores both. With no callback or the ring's (a new ring takes the place of an older one then)
    // opens the socket, and its success is the result; with any other opens nothing: true.
    bool openLogger(std::uint32_t facility, LogCallback callback, std::uint16_t port);
    // True at once when it is open, whatever its port.
    bool openLogSocket(std::uint16_t port);

    void deliver(LogRecord& record) noexcept override;

private:
    std::unique_ptr<Socket> socket_;
    // Written by openLogger, called by every thread that logs.
    std::atomic<LogCallback> callback_{nullptr};
    IPAddress destination_{};
    // Set once by openLogSocket, when the socket and `destination_` stand; every thread that logs
    // reads it before it looks at them.
    std::atomic<bool> isSending_{false};
    std::mutex openMutex_;  // of openLogSocket; no line ever waits for it
};

// A new Logger takes the place of the one there was, which lives on: a line may be on its way to
// it. The first form: facility 16, no callback, port 19640, the one before last in its turn again;
// the second: port 0.
void createLogger();
void createLogger(std::uint32_t facility, LogCallback callback);
// Frees whatever createLogger has made; there is no logger then. For a module that is about to
// leave a process: no thread of its own is left that could still log.
void freeLoggers() noexcept;

// Sets the threshold, and opens the present logger's socket on port 19640. False when that did not
// work or there is none.
bool setLogLevel(std::int32_t level);

// The process-wide sink, so that a second module can share it.
LogSink* getLogger() noexcept;
void setLogger(LogSink* sink) noexcept;

// ---- the message ----

struct LogMessage {
    const char* start;   // of the datagram, and what the callback gets
    std::uint64_t size;  // of the datagram
};

// Puts priority and time into the places that the record's header keeps for them. At facility 16
// and level 6: "<134>Mar 05 17:02:09 localhost " and the text, no newline.
LogMessage stampRecord(LogRecord& record, const platform::LocalTime& time) noexcept;

}  // namespace ZENNO
