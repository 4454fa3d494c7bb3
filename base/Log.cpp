#include "base/Log.h"

#include <array>
#include <utility>
#include <vector>

#include "base/LogRing.h"
#include "platform/Time.h"
#include "src/Network/Socket.h"

namespace ZENNO {

namespace {

void putTwoDigits(char* at, int value) noexcept {
    at[0] = static_cast<char>('0' + value / 10 % 10);
    at[1] = static_cast<char>('0' + value % 10);
}

constexpr char monthNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// What createLogger has made. None is freed while the module stays, since a line may be on its way
// to it at any moment; and not at the end of the process, since lines come to the very last.
std::mutex madeMutex;  // over the three below
std::vector<std::unique_ptr<Logger>>* made = nullptr;
std::array<Logger*, 2> turns{};  // of them, for the driver's
std::size_t turn = 0;

Logger& make() {
    if (made == nullptr) made = new std::vector<std::unique_ptr<Logger>>;
    made->push_back(std::make_unique<Logger>());
    return *made->back();
}

Logger& installNew() {
    const std::lock_guard lock(madeMutex);
    Logger& installed = make();
    setLogger(&installed);
    return installed;
}

// Every driver object of a process asks for one. Two take turns, so that the one that is replaced
// lives on as it is, and a host that makes drivers without end holds two sockets of them.
Logger& installNextOfTwo() {
    const std::lock_guard lock(madeMutex);
    turn ^= 1;
    if (turns[turn] == nullptr) turns[turn] = &make();
    setLogger(turns[turn]);
    return *turns[turn];
}

}  // namespace

LogMessage stampRecord(LogRecord& record, const platform::LocalTime& time) noexcept {
    char* const text = record.text;
    // The digits end in front of the '>', so a short priority starts the message further on.
    text[4] = '>';
    char* start = text + 4;
    unsigned rest = record.priority;
    do {
        *--start = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    *--start = '<';

    for (int i = 0; i < 3; ++i) text[5 + i] = monthNames[static_cast<unsigned>(time.month) % 12][i];
    text[8] = ' ';
    putTwoDigits(text + 9, time.day);
    text[11] = ' ';
    putTwoDigits(text + 12, time.hour);
    text[14] = ':';
    putTwoDigits(text + 15, time.minute);
    text[17] = ':';
    putTwoDigits(text + 18, time.second);
    text[20] = ' ';

    // Right for one digit and for three. With two the datagram takes the closing NUL along; viewers
    // have always seen it so, and the facility in use has three.
    return {start, record.priority < 10 ? record.length - 2 : record.length};
}

Logger::Logger() : socket_(std::make_unique<Socket>()) {}

Logger::~Logger() = default;

bool Logger::openLogger(std::uint32_t facility, LogCallback callback, std::uint16_t port) {
    setFacility(facility);
    callback_.store(callback, std::memory_order_release);
    if (callback == &writeToLogRing) installLogRing();
    if (callback != nullptr && callback != &writeToLogRing) return true;
    return openLogSocket(port);
}

bool Logger::openLogSocket(std::uint16_t port) {
    const std::lock_guard lock(openMutex_);
    if (socket_->isOpen()) return true;
    if (!socket_->open(SocketKind::udpV6)) return false;
    IPAddress local = IPAddress::loopbackV6();
    if (!socket_->bindV6(local) || !socket_->setBlocking(false)) {
        socket_->close();  // the next attempt starts anew
        return false;
    }
    destination_ = IPAddress::loopbackV6(port);
    isSending_.store(true, std::memory_order_release);
    return true;
}

void Logger::deliver(LogRecord& record) noexcept {
    const LogMessage message = stampRecord(record, platform::localTimeNow());
    if (isSending_.load(std::memory_order_acquire)) {
        // One try, to an address of its own: threads that log at once share nothing but the handle.
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(message.start);
        socket_->sendOnce({bytes, message.size}, destination_, /*retried=*/false);
    }
    if (const LogCallback callback = callback_.load(std::memory_order_acquire)) {
        callback(message.start);
    }
}

void createLogger() {
    installNextOfTwo().openLogger(logFacility, nullptr, logPort);
}

void createLogger(std::uint32_t facility, LogCallback callback) {
    installNew().openLogger(facility, callback, 0);
}

void freeLoggers() noexcept {
    setLogger(nullptr);
    const std::lock_guard lock(madeMutex);
    turns = {};
    delete std::exchange(made, nullptr);
}

bool setLogLevel(std::int32_t level) {
    logLevel.store(level, std::memory_order_relaxed);
    auto* present = dynamic_cast<Logger*>(getLogger());
    return present != nullptr && present->openLogSocket(logPort);
}

LogSink* getLogger() noexcept {
    return logger.load(std::memory_order_acquire);
}

void setLogger(LogSink* sink) noexcept {
    logger.store(sink, std::memory_order_release);
}

}  // namespace ZENNO
