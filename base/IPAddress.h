// The one address of the system, for both families: 16 bytes, a port, an interface number.
//
// IPv4 is held in IPv4-mapped form. Link-local means only this: the first group is exactly fe80.
// Text forms are those of the settings files and the log: a port stands behind a comma.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace ZENNO {

class IPAddress {
public:
    std::array<std::uint8_t, 16> address{};  // network order
    std::array<std::uint8_t, 2> port{};      // network order: the high byte first
    std::uint32_t scope = 0;                 // interface number, host order; 0 if none

    // An address of eight groups, as it is written; port and scope in host order.
    static IPAddress of(const std::array<std::uint16_t, 8>& groups, std::uint16_t port = 0,
                        std::uint32_t scope = 0) noexcept;
    static IPAddress loopbackV6(std::uint16_t port = 0) noexcept;                 // ::1
    static IPAddress allNodes(std::uint16_t port, std::uint32_t scope) noexcept;  // ff02::1

    std::uint16_t word(int i) const noexcept;  // group i, 0 to 7, as a number
    void setWord(int i, std::uint16_t v) noexcept;
    std::uint16_t portNumber() const noexcept;
    void setPortNumber(std::uint16_t number) noexcept;
    std::uint16_t portRaw() const noexcept;  // as stored, for a socket address
    void setPortRaw(std::uint16_t raw) noexcept;
    std::uint32_t v4Raw() const noexcept;  // bytes 12 to 15 as stored
    std::uint32_t v4Number() const noexcept;
    void setV4Raw(std::uint32_t raw) noexcept;            // mapped form; port and scope stay
    void copyTo(std::uint16_t groups[8]) const noexcept;  // raw bytes
    void copyFrom(const std::uint16_t groups[8]) noexcept;

    bool isLoopback() const noexcept;         // exactly ::1
    bool isLinkLocal() const noexcept;        // first group exactly fe80
    std::uint16_t linkCode() const noexcept;  // 0xFE01 when link-local, else 0xFE00
    bool isZeroAddress() const noexcept;      // the 16 bytes alone
    // Address bytes and port all zero: what "no address" means in the system. Scope is not asked.
    bool isNone() const noexcept;

    void toText(std::string& out) const;          // address alone
    void toTextWithPort(std::string& out) const;  // address, comma, port
    void toTextV4(std::string& out) const;        // a.b.c.d
    void portText(std::string& out) const;
    std::string text() const;  // toText as a value

    // Each gives false for a text that does not parse. What may have changed then is told in the
    // body: parseV6WithPort can fail behind the comma, after the address has been taken.
    bool parseV6(std::string_view text) noexcept;
    bool parsePort(std::string_view text) noexcept;
    bool parseV6WithPort(std::string_view text) noexcept;
    bool parseV4WithPort(std::string_view text) noexcept;

    // Address bytes first to last, then the port bytes, then the scope.
    friend std::strong_ordering operator<=>(const IPAddress&, const IPAddress&) noexcept = default;
    friend bool operator==(const IPAddress&, const IPAddress&) noexcept = default;
};

}  // namespace ZENNO
