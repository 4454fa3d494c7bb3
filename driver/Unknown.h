// The reference-counting base of every object that the server hands out, and the two counts by
// which the module knows whether it may go.
//
// An object answers IUnknown twice. The operations of its interface forward to the outer unknown,
// which is another object's when it was aggregated; the non-delegating side counts and answers for
// the object itself.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Com.h"

// Every CBaseObject alive. Host's threads write, DllCanUnloadNow reads.
extern std::atomic<std::int32_t> moduleObjectCount;
// LockServer's balance; the same threads.
extern std::atomic<std::int32_t> moduleLockCount;

class CBaseObject {
public:
    CBaseObject(const CBaseObject&) = delete;
    CBaseObject& operator=(const CBaseObject&) = delete;

protected:
    CBaseObject() noexcept { ++moduleObjectCount; }
    ~CBaseObject() { --moduleObjectCount; }
};

class INonDelegatingUnknown {
public:
    virtual ZENNO::platform::HResult NonDelegatingQueryInterface(const ZENNO::platform::Guid& riid,
                                                                 void** ppv) = 0;
    virtual std::uint32_t NonDelegatingAddRef() = 0;
    virtual std::uint32_t NonDelegatingRelease() = 0;
    virtual ~INonDelegatingUnknown() = default;
};

class CUnknown : public INonDelegatingUnknown, public CBaseObject {
public:
    explicit CUnknown(ZENNO::platform::IUnknown* outer) noexcept
        : side_(*this), outer_(outer != nullptr ? outer : &side_) {}

    // Knows IID_IUnknown alone.
    ZENNO::platform::HResult NonDelegatingQueryInterface(const ZENNO::platform::Guid& riid,
                                                         void** ppv) override;
    std::uint32_t NonDelegatingAddRef() override;
    // Deletes the object with its last reference.
    std::uint32_t NonDelegatingRelease() override;

    ZENNO::platform::IUnknown& outer() const noexcept { return *outer_; }

private:
    // The non-delegating side as an IUnknown: what IID_IUnknown gives out.
    class Side final : public ZENNO::platform::IUnknown {
    public:
        explicit Side(CUnknown& owner) noexcept : owner_(owner) {}
        ZENNO::platform::HResult QueryInterface(const ZENNO::platform::Guid& riid,
                                                void** ppv) override {
            return owner_.NonDelegatingQueryInterface(riid, ppv);
        }
        std::uint32_t AddRef() override { return owner_.NonDelegatingAddRef(); }
        std::uint32_t Release() override { return owner_.NonDelegatingRelease(); }

    private:
        CUnknown& owner_;
    };

    Side side_;
    ZENNO::platform::IUnknown* outer_;
    std::atomic<std::uint32_t> references_{0};  // Release may come from another thread
};
