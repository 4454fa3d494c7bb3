#pragma once

#include <string>

namespace velmora_register {

// The system's conversion, as PathFit.h asks for it.
int bytesInCodePage(const std::wstring& text, unsigned codePage, unsigned long flags,
                    bool* isReplaced);

}  // namespace velmora_register
