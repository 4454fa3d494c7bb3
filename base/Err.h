// The one exception of the base library: something without which nothing else can work, such as
// sockets that do not start. It tells of itself on standard error as soon as it is made.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace ZENNO {

class Err : public std::exception {
public:
    std::string file;
    std::uint32_t line;
    std::uint32_t code;
    std::uint32_t data;

    Err(std::string sourceFile, std::uint32_t sourceLine, std::uint32_t errorCode = 0,
        std::uint32_t errorData = 0);
    const char* what() const noexcept override;

    // What the constructor prints: a line of its own, between two line ends.
    std::string report() const;
};

}  // namespace ZENNO
