// Deferred log output: threads that must not wait for a slow console leave their lines in a ring,
// and an idle thread writes them to standard output. Nobody installs it in the driver, which uses
// the datagrams alone; it is there for the tools that want it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace ZENNO {

// The slots, one behind the other. Any number of writers, one reader, which takes no lock: a slot
// that is overwritten while it is read comes out mixed, and that is all.
class LogSlots {
public:
    static constexpr std::uint32_t slotCount = 40;
    static constexpr std::size_t slotBytes = 1500;

    LogSlots();

    // Nobody looks at the reader: what more than 40 lines leave unread is overwritten, and after
    // exactly 40 the ring looks empty. A body above 1499 characters runs on into the following
    // slot; from the last slot it is cut, for nothing follows. An empty one is nothing.
    void write(const char* body);
    // The reader's next line; false when there is none.
    bool read(std::string& line);
    bool isEmpty() const noexcept;  // any thread

private:
    // Written under the mutex, read without it.
    std::unique_ptr<std::atomic<char>[]> store_;
    // 0 to 39. Written under the mutex once a slot is filled, read by the reader.
    std::atomic<std::uint32_t> writeIndex_{0};
    std::atomic<std::uint32_t> readIndex_{0};  // written by the reader, read by isEmpty
    std::mutex writers_;
};

// The slots with the thread that writes them out.
class LogRing {
public:
    explicit LogRing(std::FILE* out = stdout);
    ~LogRing();  // stops and joins the flusher
    LogRing(const LogRing&) = delete;
    LogRing& operator=(const LogRing&) = delete;

    void write(const char* body) { slots_.write(body); }  // any thread
    // Whether every line has been taken to be written out. What has not is lost at the end.
    bool isDrained() const noexcept { return slots_.isEmpty(); }

private:
    void flush();

    std::FILE* out_;
    std::atomic<bool> stop_{false};  // written by the destructor, read by the flusher
    LogSlots slots_;
    std::thread flusher_;
};

// The callback that hands a message's body to the process-wide ring.
void writeToLogRing(const char* message);

// Makes a new ring the process-wide one; an older one is stopped, joined and freed.
void installLogRing(std::FILE* out = stdout);

}  // namespace ZENNO
