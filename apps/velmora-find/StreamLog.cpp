#include "apps/velmora-find/StreamLog.h"

#include <exception>

#include "apps/velmora-find/Printable.h"

namespace velmora_find {

StreamLog::StreamLog(std::ostream& out, int level) : out_(out), installed_(level >= 0) {
    if (!installed_) return;
    sinkBefore_ = ZENNO::logger.exchange(this);
    levelBefore_ = ZENNO::logLevel.exchange(level);
}

StreamLog::~StreamLog() {
    if (!installed_) return;
    ZENNO::logLevel = levelBefore_;
    ZENNO::logger = sinkBefore_;
}

void StreamLog::deliver(ZENNO::LogRecord& record) noexcept try {
    const std::lock_guard lock(mutex_);
    out_ << printable({record.text + ZENNO::LogRecord::headerLength,
                       record.length - ZENNO::LogRecord::headerLength})
         << std::endl;
} catch (const std::exception&) {
    // A line that finds no memory is not worth the program.
}

}  // namespace velmora_find
