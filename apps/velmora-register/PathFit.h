// Whether audio software can read the path of the driver out of the registry: it does so in the
// system's code page, and keeps no more than so many bytes of it.
#pragma once

#include <functional>
#include <string>

namespace velmora_register {

// Much audio software keeps the path in 128 bytes, one of them for the end.
inline constexpr int hostsPathLimit = 127;

inline constexpr unsigned utf8CodePage = 65001;
// WC_NO_BEST_FIT_CHARS: a letter that the code page lacks is not replaced by one that looks like
// it.
inline constexpr unsigned long noBestFit = 0x400;

// The system's conversion: how many bytes `text` has in `codePage`, 0 where it cannot tell;
// `isReplaced`, unless null, becomes whether letters had to be replaced.
using CountBytes = std::function<int(const std::wstring& text, unsigned codePage,
                                     unsigned long flags, bool* isReplaced)>;

// A sentence, where hosts could not read the path; else empty.
std::wstring unfitPath(const std::wstring& dll, unsigned codePage, const CountBytes& countBytes);

}  // namespace velmora_register
