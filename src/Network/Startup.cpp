#include "src/Network/Startup.h"

#include <mutex>

#include "base/Err.h"

namespace ZENNO {

namespace {
// The source and the lines by which these two failures are known to whoever reads a report.
constexpr const char* source = "src/Network/Socket.cpp";
constexpr std::uint32_t lineNoExitHook = 76;
constexpr std::uint32_t lineFailed = 79;
}  // namespace

void requireStarted(platform::NetworkStart start) {
    switch (start) {
        case platform::NetworkStart::ready:
            return;
        case platform::NetworkStart::noExitHook:
            throw Err(source, lineNoExitHook, 0, 0);
        case platform::NetworkStart::failed:
            throw Err(source, lineFailed, 0, 0);
    }
}

void startNetworkOnce(platform::NetworkStart (*start)() noexcept) {
    static std::mutex mutex;
    static bool started = false;
    const std::lock_guard lock(mutex);
    if (started) return;
    requireStarted(start());
    started = true;
}

}  // namespace ZENNO
