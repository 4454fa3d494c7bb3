#include "base/Path.h"

#include "platform/System.h"

namespace ZENNO {

namespace {

constexpr char separator = '\\';

std::string_view withoutFinalSeparator(std::string_view path) noexcept {
    if (path.ends_with(separator)) path.remove_suffix(1);
    return path;
}

bool cutBehindLastSeparator(std::string& path, std::size_t searchEnd) {
    const auto at = std::string_view(path).substr(0, searchEnd).rfind(separator);
    if (at == std::string_view::npos) return false;
    path.resize(at + 1);
    return true;
}

platform::FileKind kindOf(std::string_view path) {
    return platform::fileKind(std::string(path));
}

}  // namespace

void modulePath(std::string& out) {
    out = platform::processPath();
}

bool folderOf(std::string& path) {
    if (path.empty() || path.back() == separator) return false;
    return cutBehindLastSeparator(path, path.size());
}

bool parentFolder(std::string& folder) {
    if (folder.empty() || folder.back() != separator) return false;
    return cutBehindLastSeparator(folder, folder.size() - 1);
}

void ensureFolder(std::string& out, std::string_view path) {
    std::string made(path.empty() ? "." : path);  // `path` may be a view of `out`
    if (made.back() != separator) made += separator;
    out = std::move(made);
}

bool fileExists(std::string_view path, bool folder) {
    if (path.empty()) return false;
    const platform::FileKind kind = kindOf(folder ? withoutFinalSeparator(path) : path);
    return kind == (folder ? platform::FileKind::folder : platform::FileKind::file);
}

bool pathExists(std::string_view path) {
    if (path.empty()) return false;
    return kindOf(path) != platform::FileKind::missing ||
           kindOf(withoutFinalSeparator(path)) != platform::FileKind::missing;
}

bool searchUpward(std::string& folder, std::string_view name) {
    if (!folder.empty() && folder.back() != separator) return false;
    std::string from = folder;
    do {
        const std::string joint = from + std::string(name);
        if (fileExists(joint, joint.empty() || joint.back() == separator)) {
            folder = joint;
            return true;
        }
    } while (parentFolder(from));
    return false;
}

}  // namespace ZENNO
