// What takes its time, on a thread of its own: the search and the doctor. Each tells the window
// when it is done, by a message.
#pragma once

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <future>
#include <list>
#include <string>
#include <thread>

#include "driver/FinderCall.h"

namespace velmora_settings {

inline constexpr UINT messageFound = WM_APP + 1;       // the search is done
inline constexpr UINT messageDoctorDone = WM_APP + 2;  // the doctor is

// One search at a time. The destructor waits for the one that runs.
class Searcher {
public:
    ~Searcher();
    bool isRunning() const noexcept { return isRunning_; }
    // The finder is this thread's until the message has come.
    void start(HWND window, VELMORA::asio_velmora_find_call& finder,
               std::list<ZENNO::IPAddress> addresses, std::uint32_t interfaceIndex);
    // False for a search that goes on for longer than this.
    bool endsWithin(std::chrono::milliseconds patience) const;
    // On messageFound: false where the search could not run.
    bool take(VELMORA::FinderMap& found);

private:
    std::thread thread_;
    std::future<void> ended_;
    bool isRunning_ = false;  // the window's thread alone
    bool couldRun_ = false;   // these two: written by the thread, read when it is joined
    VELMORA::FinderMap found_;
};

// velmora-find doctor, with what it says.
class Doctor {
public:
    ~Doctor() { end(); }
    bool isRunning() const noexcept { return isRunning_; }
    // False, with a sentence, where it could not be started.
    bool start(HWND window, const std::string& program, std::string& sentence);
    std::string take();  // on messageDoctorDone
    void end();          // if it still runs

private:
    void read(HWND window);

    std::thread thread_;
    bool isRunning_ = false;  // the window's thread alone
    HANDLE process_ = nullptr, output_ = nullptr;
    std::string says_;  // written by the thread, read when it is joined
};

// Starts a program in a console of its own; false, with a sentence, where that failed.
bool startProgram(const std::string& program, std::string& sentence);

}  // namespace velmora_settings
