// Loaded modules and the texts of COM. Windows alone has a body.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Com.h"

namespace ZENNO::platform {

bool moduleIsLoaded(const char* fileName) noexcept;
// The module's full path in the system's code page; empty when it cannot be told in `limit`
// characters.
std::string loadedModulePath(const char* fileName, std::uint32_t limit);
// By the system's own rules for its code page, in which a letter's byte may be half of another
// character.
std::string toLowerCase(std::string text);
// A class identifier as the registry writes it: in braces, upper case.
bool classText(const Guid& id, std::wstring& out);
// False when the text does not fit into `limit` bytes with its NUL.
bool toSystemCodePage(const std::wstring& text, std::uint32_t limit, std::string& out);

}  // namespace ZENNO::platform
