// Paths as this program compares them, and who has a file open.
#pragma once

#include <string>
#include <vector>

namespace velmora_register {

std::wstring fullPath(const std::wstring& path);
std::wstring leafOf(const std::wstring& path);
// By letters without case, or, where one is a short name or a link of the other, by the file.
bool isSameFile(const std::wstring& a, const std::wstring& b);
bool isFile(const std::wstring& path);

// A program that runs from the file, or has it loaded or open, keeps others from writing to it.
bool isHeld(const std::wstring& path);
// Those programs, as "player.exe (process 4711)", each once. Empty when the system does not tell.
std::vector<std::wstring> holdersOf(const std::vector<std::wstring>& paths);

}  // namespace velmora_register
