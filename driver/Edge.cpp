#include "driver/Edge.h"

#include "base/LogLine.h"

void logEscaped(const char* operation, const char* what) noexcept {
    try {
        ZENNO::LogLine(3) << operation << " failed: " << what;
    } catch (...) {
        // Not even a line of log could be had: the answer alone tells of it.
    }
}
