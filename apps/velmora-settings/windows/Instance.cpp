#include "apps/velmora-settings/windows/Instance.h"

#include "apps/velmora-settings/windows/Ids.h"

namespace velmora_settings {

Instance::Instance() {
    mark_ = CreateMutexW(nullptr, /*bInitialOwner=*/TRUE, instanceMark);
    isFirst_ = mark_ == nullptr || GetLastError() != ERROR_ALREADY_EXISTS;
}

Instance::~Instance() {
    if (mark_ == nullptr) return;
    if (isFirst_) ReleaseMutex(mark_);
    CloseHandle(mark_);
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
        const DWORD waited = WaitForSingleObject(mark_, pause);
        isFirst_ = waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
        if (isFirst_) return false;
    }
    return false;
}

}  // namespace velmora_settings
