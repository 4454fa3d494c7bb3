// Writes what the driver logs (syslog datagrams to port 19640 of the loopback address) into a file,
// a line each, for as long as it lives. The driver logs when its settings say Debug=enable.
#pragma once

#include <atomic>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "apps/log/LogPort.h"
#include "src/Network/Environment.h"

namespace velmora_play {

class DriverLog {
public:
    ~DriverLog();
    // False, with a sentence in `error`, when the file or the port cannot be had. Once. Port 0 is
    // any that is free.
    bool open(const std::string& path, std::string& error,
              std::uint16_t port = velmora_log::logPort);
    std::uint16_t port() const { return port_; }  // once it is open

private:
    void listen();

    std::unique_ptr<ZENNO::Link> link_;
    std::ofstream file_;
    std::uint16_t port_ = 0;
    std::atomic<bool> ends_{false};  // set by the destructor, read by the thread
    std::thread thread_;
};

}  // namespace velmora_play
