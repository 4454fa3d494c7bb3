#include "apps/velmora-settings/windows/Work.h"

#include <array>
#include <exception>
#include <utility>

#include "apps/velmora-settings/windows/Text.h"
#include "platform/System.h"

namespace velmora_settings {
namespace {

std::string missing(const std::string& program) {
    return program + " is not there: install KORVENTE Velmora again.";
}

std::string notStarted(const std::string& program) {
    const auto error = static_cast<std::int32_t>(GetLastError());
    return program + " could not be started (" + ZENNO::platform::errorText(error) +
           "): install KORVENTE Velmora again.";
}

bool isThere(const std::string& program) {
    return ZENNO::platform::fileKind(program) == ZENNO::platform::FileKind::file;
}

// A process that writes both its outputs into one pipe, whose other end is `output`.
bool startPiped(const std::string& program, const wchar_t* arguments, HANDLE& process,
                HANDLE& output) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!CreatePipe(&readEnd, &writeEnd, &inherited, 0)) return false;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd;
    PROCESS_INFORMATION made{};
    std::wstring line = L"\"" + wide(program) + L"\" " + arguments;
    const bool isStarted =
        CreateProcessW(wide(program).c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                       nullptr, nullptr, &startup, &made) != 0;
    CloseHandle(writeEnd);
    if (!isStarted) {
        const DWORD error = GetLastError();
        CloseHandle(readEnd);
        SetLastError(error);
        return false;
    }
    CloseHandle(made.hThread);
    process = made.hProcess;
    output = readEnd;
    return true;
}

}  // namespace

// ---- the search ----

Searcher::~Searcher() {
    if (thread_.joinable()) thread_.join();
}

void Searcher::start(HWND window, VELMORA::asio_velmora_find_call& finder,
                     std::list<ZENNO::IPAddress> addresses, std::uint32_t interfaceIndex) {
    if (isRunning_) return;
    std::promise<void> ended;
    ended_ = ended.get_future();
    thread_ = std::thread([this, window, &finder, addresses = std::move(addresses), interfaceIndex,
                           ended = std::move(ended)]() mutable {
        try {
            couldRun_ = finder.find(found_, addresses, interfaceIndex);
        } catch (const std::exception&) {
            couldRun_ = false;  // memory is short
        }
        PostMessageW(window, messageFound, 0, 0);
        ended.set_value();
    });
    isRunning_ = true;
}

bool Searcher::endsWithin(std::chrono::milliseconds patience) const {
    return !isRunning_ || ended_.wait_for(patience) == std::future_status::ready;
}

bool Searcher::take(VELMORA::FinderMap& found) {
    if (thread_.joinable()) thread_.join();
    isRunning_ = false;
    found = std::exchange(found_, {});
    return couldRun_;
}

// ---- the doctor ----

void Doctor::end() {
    if (process_ != nullptr && isRunning_) TerminateProcess(process_, 1);
    take();
}

bool Doctor::start(HWND window, const std::string& program, std::string& sentence) {
    if (isRunning_) return true;
    if (!isThere(program)) {
        sentence = missing(program);
        return false;
    }
    if (!startPiped(program, L"doctor", process_, output_)) {
        sentence = notStarted(program);
        return false;
    }
    says_.clear();
    thread_ = std::thread([this, window] { read(window); });
    isRunning_ = true;
    return true;
}

// Until the process has ended and the pipe is empty: not until the pipe is closed, for whoever the
// process has started may hold it longer.
void Doctor::read(HWND window) {
    constexpr std::size_t most = 1u << 20;  // bytes that are kept
    constexpr DWORD pause = 50;             // ms
    std::array<char, 4096> piece;
    bool hasEnded = false;
    for (;;) {
        DWORD waiting = 0, got = 0;
        if (!PeekNamedPipe(output_, nullptr, 0, nullptr, &waiting, nullptr)) break;
        if (waiting == 0) {
            if (hasEnded) break;
            hasEnded = WaitForSingleObject(process_, pause) == WAIT_OBJECT_0;
            continue;
        }
        if (!ReadFile(output_, piece.data(), static_cast<DWORD>(piece.size()), &got, nullptr))
            break;
        if (says_.size() < most) says_.append(piece.data(), got);
    }
    WaitForSingleObject(process_, INFINITE);
    PostMessageW(window, messageDoctorDone, 0, 0);
}

std::string Doctor::take() {
    if (thread_.joinable()) thread_.join();
    isRunning_ = false;
    if (output_ != nullptr) CloseHandle(std::exchange(output_, nullptr));
    if (process_ != nullptr) CloseHandle(std::exchange(process_, nullptr));
    return says_;
}

// ---- the viewer ----

bool startProgram(const std::string& program, std::string& sentence) {
    if (!isThere(program)) {
        sentence = missing(program);
        return false;
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION made{};
    std::wstring line = L"\"" + wide(program) + L"\"";
    if (!CreateProcessW(wide(program).c_str(), line.data(), nullptr, nullptr, FALSE,
                        CREATE_NEW_CONSOLE, nullptr, nullptr, &startup, &made)) {
        sentence = notStarted(program);
        return false;
    }
    CloseHandle(made.hThread);
    CloseHandle(made.hProcess);
    return true;
}

}  // namespace velmora_settings
