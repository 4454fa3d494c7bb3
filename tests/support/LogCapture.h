// Catches every log line for as long as it lives, at the level asked for.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "base/LogLine.h"

namespace velmora_test {

class LogCapture final : public ZENNO::LogSink {
public:
    struct Line {
        int level;
        std::string text;  // the message without its header
    };

    explicit LogCapture(int level = 7)
        : levelBefore_(ZENNO::logLevel.exchange(level)),
          sinkBefore_(ZENNO::logger.exchange(&hub())) {
        const std::lock_guard lock(hub().mutex);
        captureBefore_ = hub().current;
        hub().current = this;
    }
    ~LogCapture() override {
        ZENNO::logger = sinkBefore_;
        ZENNO::logLevel = levelBefore_;
        const std::lock_guard lock(hub().mutex);
        hub().current = captureBefore_;
    }

    void deliver(ZENNO::LogRecord& record) noexcept override {
        const std::lock_guard lock(mutex_);
        lines_.push_back(
            {record.priority & 7, std::string(record.text + ZENNO::LogRecord::headerLength,
                                              record.length - ZENNO::LogRecord::headerLength)});
    }

    std::vector<Line> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> out;
        for (const Line& line : lines()) out.push_back(line.text);
        return out;
    }
    std::vector<std::string> texts(int level) const {
        std::vector<std::string> out;
        for (const Line& line : lines()) {
            if (line.level == level) out.push_back(line.text);
        }
        return out;
    }
    bool has(const std::string& text) const { return count(text) > 0; }
    bool has(int level, const std::string& text) const {
        for (const Line& line : lines()) {
            if (line.level == level && line.text == text) return true;
        }
        return false;
    }
    int count(const std::string& text) const {
        int n = 0;
        for (const Line& line : lines()) n += line.text == text ? 1 : 0;
        return n;
    }
    void clear() {
        const std::lock_guard lock(mutex_);
        lines_.clear();
    }

private:
    // What is really installed. A thread that has just looked the sink up may still deliver to it
    // when the capture has ended: so it never ends, and knows under its mutex who captures.
    struct Hub final : ZENNO::LogSink {
        void deliver(ZENNO::LogRecord& record) noexcept override {
            const std::lock_guard lock(mutex);
            if (current != nullptr) current->deliver(record);
        }
        std::mutex mutex;
        LogCapture* current = nullptr;
    };
    static Hub& hub() {
        static Hub& hub = *new Hub;
        return hub;
    }

    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    int levelBefore_;
    ZENNO::LogSink* sinkBefore_;
    LogCapture* captureBefore_ = nullptr;
};

}  // namespace velmora_test
