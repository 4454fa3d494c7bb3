// One window a session: a second start brings the first one's window to the front, or takes the
// place of a first one that ends.
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
    // For a second one. The first may be so young that it has no window yet, or about to end; it is
    // waited for. False: it has ended, and this is the first by now; or it shows nothing.
    bool bringFirstToFront();

private:
    HANDLE mark_ = nullptr;  // a mutex that the first one holds for as long as it lives
    bool isFirst_ = true;
};

}  // namespace velmora_settings
