// One window a session: a second start brings the first one's window to the front.
#pragma once

#include <windows.h>

namespace velmora_settings {

class Instance {
public:
    Instance();
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    bool isFirst() const noexcept { return isFirst_; }
    // For a second one. The first may be so young that it has no window yet; it is waited for.
    static bool bringFirstToFront();

private:
    HANDLE mark_ = nullptr;
    bool isFirst_ = true;
};

}  // namespace velmora_settings
