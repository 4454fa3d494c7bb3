#include "apps/velmora-register/windows/CodePage.h"

#include <windows.h>

namespace velmora_register {

int bytesInCodePage(const std::wstring& text, unsigned codePage, unsigned long flags,
                    bool* isReplaced) {
    BOOL was = FALSE;
    const int bytes =
        WideCharToMultiByte(codePage, flags, text.data(), static_cast<int>(text.size()), nullptr, 0,
                            nullptr, isReplaced != nullptr ? &was : nullptr);
    if (isReplaced != nullptr) *isReplaced = was != FALSE;
    return bytes;
}

}  // namespace velmora_register
