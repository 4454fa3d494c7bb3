// The shapes of COM, as far as the driver's interface needs them: binary facts, not an
// implementation. They are the same on every system; where there is no COM a host in the same
// process calls through the same tables.
//
// On 64-bit Windows there is one calling convention, so no operation carries a keyword for it.
// The types stand in a namespace of their own, so that a body which needs the system's COM headers
// can include them beside this one.
#pragma once

#include <array>
#include <cstdint>

namespace ZENNO::platform {

using HResult = std::int32_t;

// The system's headers know these names as macros, which then stand in for the constants.
#ifndef S_OK
constexpr HResult S_OK = 0;
#endif
#ifndef S_FALSE
constexpr HResult S_FALSE = 1;
#endif
#ifndef E_POINTER
constexpr HResult E_POINTER = static_cast<HResult>(0x80004003u);
#endif
#ifndef E_NOINTERFACE
constexpr HResult E_NOINTERFACE = static_cast<HResult>(0x80004002u);
#endif
#ifndef E_OUTOFMEMORY
constexpr HResult E_OUTOFMEMORY = static_cast<HResult>(0x8007000Eu);
#endif
#ifndef CLASS_E_CLASSNOTAVAILABLE
constexpr HResult CLASS_E_CLASSNOTAVAILABLE = static_cast<HResult>(0x80040111u);
#endif

struct Guid {
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::array<std::uint8_t, 8> data4{};

    friend constexpr bool operator==(const Guid&, const Guid&) noexcept = default;
};
static_assert(sizeof(Guid) == 16);

constexpr Guid IID_IUnknown{0x00000000, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr Guid IID_IClassFactory{0x00000001, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// Objects end by Release alone: no destructor may stand in these tables.
class IUnknown {
public:
    virtual HResult QueryInterface(const Guid& riid, void** ppv) = 0;
    virtual std::uint32_t AddRef() = 0;
    virtual std::uint32_t Release() = 0;

protected:
    ~IUnknown() = default;
};

class IClassFactory : public IUnknown {
public:
    virtual HResult CreateInstance(IUnknown* outer, const Guid& riid, void** ppv) = 0;
    virtual HResult LockServer(std::int32_t lock) = 0;

protected:
    ~IClassFactory() = default;
};

}  // namespace ZENNO::platform
