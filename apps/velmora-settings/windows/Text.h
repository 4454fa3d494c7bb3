// The step between the model's UTF-8 and the wide texts of windows.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace velmora_settings {

std::wstring wide(std::string_view text);
std::string narrow(std::wstring_view text);

std::string textOf(HWND window);
// Only where it differs: what is set anew flickers, and is read aloud anew.
void showText(HWND window, std::string_view text);

}  // namespace velmora_settings
