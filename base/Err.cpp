#include "base/Err.h"

#include <cstdio>
#include <utility>

namespace ZENNO {

Err::Err(std::string sourceFile, std::uint32_t sourceLine, std::uint32_t errorCode,
         std::uint32_t errorData)
    : file(std::move(sourceFile)), line(sourceLine), code(errorCode), data(errorData) {
    std::fputs(report().c_str(), stderr);
}

const char* Err::what() const noexcept {
    return file.c_str();
}

std::string Err::report() const {
    return "\nZENNO ASSERT[" + file + "]Line:" + std::to_string(line) +
           "[code:" + std::to_string(code) + " Data:" + std::to_string(data) + "]\n";
}

}  // namespace ZENNO
