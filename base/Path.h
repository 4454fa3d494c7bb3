// Folder arithmetic of the system's paths: UTF-8, backslashes alone. A folder ends in a backslash
// or is the empty text. Safe on any thread.
#pragma once

#include <string>
#include <string_view>

namespace ZENNO {

// The file of the running process (for a DLL: of its host); empty on failure.
void modulePath(std::string& out);

// Cuts a path behind its last backslash. False, and nothing changed, for a folder and for a path
// without one.
bool folderOf(std::string& path);

// Takes the last folder off: C:\a\ becomes C:\. False, and nothing changed, where there is no
// parent or the text is no folder.
bool parentFolder(std::string& folder);

// The path with a backslash at its end; an empty one is ".\".
void ensureFolder(std::string& out, std::string_view path);

// Is there a folder, or with `folder` false anything else, of that path? A folder may be asked for
// with its backslash.
bool fileExists(std::string_view path, bool folder);
bool pathExists(std::string_view path);  // of any kind, with a final backslash or without

// Looks for `name` (a folder if it ends in a backslash) in `folder` and its parents. `folder`
// becomes the path found.
bool searchUpward(std::string& folder, std::string_view name);

}  // namespace ZENNO
