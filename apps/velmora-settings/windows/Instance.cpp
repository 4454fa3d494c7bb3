#include "apps/velmora-settings/windows/Instance.h"

#include "apps/velmora-settings/windows/Ids.h"

namespace velmora_settings {

Instance::Instance() {
    mark_ = CreateMutexW(nullptr, FALSE, L"Local\\KORVENTE Velmora settings");
    isFirst_ = mark_ == nullptr || GetLastError() != ERROR_ALREADY_EXISTS;
}

Instance::~Instance() {
    if (mark_ != nullptr) CloseHandle(mark_);
}

bool Instance::bringFirstToFront() {
    constexpr int tries = 50;
    constexpr DWORD pause = 100;  // ms
    for (int i = 0; i < tries; ++i) {
        const HWND window = FindWindowW(windowClass, nullptr);
        if (window != nullptr && IsWindowVisible(window)) {
            if (IsIconic(window)) ShowWindow(window, SW_RESTORE);
            // A box that it shows is in front of it.
            SetForegroundWindow(GetLastActivePopup(window));
            return true;
        }
        Sleep(pause);
    }
    return false;
}

}  // namespace velmora_settings
