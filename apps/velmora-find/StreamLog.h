// The system's log lines on a stream, for as long as it lives.
#pragma once

#include <mutex>
#include <ostream>

#include "base/LogLine.h"

namespace velmora_find {

class StreamLog final : public ZENNO::LogSink {
public:
    // `level`: the lines up to it; below 0 none, and whoever logged before goes on.
    StreamLog(std::ostream& out, int level);
    ~StreamLog() override;
    StreamLog(const StreamLog&) = delete;
    StreamLog& operator=(const StreamLog&) = delete;
    void deliver(ZENNO::LogRecord& record) noexcept override;

private:
    std::mutex mutex_;  // over `out_`: the watch logs on its own thread
    std::ostream& out_;
    const bool installed_;
    int levelBefore_ = -1;
    ZENNO::LogSink* sinkBefore_ = nullptr;
};

}  // namespace velmora_find
