#include "apps/velmora-register/PathFit.h"

namespace velmora_register {

std::wstring unfitPath(const std::wstring& dll, unsigned codePage, const CountBytes& countBytes) {
    bool isReplaced = false;
    // UTF-8 has every letter, and refuses to convert when it is asked about them.
    const int bytes = codePage == utf8CodePage ? countBytes(dll, codePage, 0, nullptr)
                                               : countBytes(dll, codePage, noBestFit, &isReplaced);
    if (isReplaced || bytes <= 0) {
        return L"Audio software cannot read the path of the driver in this folder: it has letters "
               L"beyond this system's code page. Choose another folder.";
    }
    if (bytes > hostsPathLimit) {
        return L"This folder's path is too long: with the driver's name it has " +
               std::to_wstring(bytes) + L" characters, and audio software reads no more than " +
               std::to_wstring(hostsPathLimit) + L". Choose a folder with a shorter path.";
    }
    return {};
}

}  // namespace velmora_register
