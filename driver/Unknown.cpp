#include "driver/Unknown.h"

using ZENNO::platform::Guid;
using ZENNO::platform::HResult;
using ZENNO::platform::IUnknown;

std::atomic<std::int32_t> moduleObjectCount{0};
std::atomic<std::int32_t> moduleLockCount{0};

HResult CUnknown::NonDelegatingQueryInterface(const Guid& riid, void** ppv) {
    if (ppv == nullptr) return ZENNO::platform::E_POINTER;
    if (riid == ZENNO::platform::IID_IUnknown) {
        *ppv = static_cast<IUnknown*>(&side_);
        NonDelegatingAddRef();
        return ZENNO::platform::S_OK;
    }
    *ppv = nullptr;
    return ZENNO::platform::E_NOINTERFACE;
}

std::uint32_t CUnknown::NonDelegatingAddRef() {
    const std::uint32_t count = ++references_;
    return count != 0 ? count : 1;
}

std::uint32_t CUnknown::NonDelegatingRelease() {
    const std::uint32_t before = references_.fetch_sub(1);
    if (before == 1) {
        // The destructor sees a live count: whatever it hands the object to may take a reference
        // and give it back without ending the object a second time.
        ++references_;
        delete this;
        return 0;
    }
    const std::uint32_t count = before - 1;
    return count != 0 ? count : 1;
}
