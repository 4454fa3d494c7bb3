#include "apps/velmora-play/DriverLog.h"

#include <filesystem>

#include "apps/log/LogPort.h"

namespace velmora_play {
namespace {

constexpr std::uint32_t waitMicros = 50'000;

}  // namespace

bool DriverLog::open(const std::string& path, std::string& error, std::uint16_t port) {
    file_.open(std::filesystem::u8path(path), std::ios::binary);
    if (!file_) {
        error = path + ": the driver's log cannot be written.";
        return false;
    }
    link_ = ZENNO::systemEnvironment().makeLink();
    ZENNO::IPAddress local = ZENNO::IPAddress::loopbackV6(port);
    const auto answer = velmora_log::openLogPort(*link_, local);
    if (answer != velmora_log::PortAnswer::open) {
        error = velmora_log::whyNotHeard(answer, port);
        return false;
    }
    port_ = local.portNumber();
    thread_ = std::thread([this] { listen(); });
    return true;
}

void DriverLog::listen() {
    ZENNO::Bytes line;
    ZENNO::IPAddress from;
    link_->readerSize = 4096;
    // A last look after the end was asked for: what is there already belongs to the log.
    for (bool last = false;;) {
        const int ready = link_->waitReadable(last ? 0 : waitMicros);
        if (ready == ZENNO::waitReady && link_->receiveFrom(line, from)) {
            if (line.empty()) continue;
            file_.write(reinterpret_cast<const char*>(line.data()),
                        static_cast<std::streamsize>(line.size()));
            file_.put('\n');
            continue;
        }
        if (last || ready == ZENNO::waitError) return;
        last = ends_.load(std::memory_order_acquire);
    }
}

DriverLog::~DriverLog() {
    ends_.store(true, std::memory_order_release);
    if (thread_.joinable()) thread_.join();
}

}  // namespace velmora_play
