#include "target/OutputChoice.h"

#include <algorithm>
#include <filesystem>

namespace velmora_target {

namespace {

constexpr const char* extensions[] = {"", ".wav", ".dsf", "", ""};  // by kind

// Devices that play, by the name in front of the colon.
constexpr std::string_view players[] = {"default", "sysdefault", "hw",     "plughw",
                                        "dmix",    "front",      "iec958", "hdmi",
                                        "pulse",   "pipewire",   "jack",   "null"};
constexpr std::string_view nameCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-=,";

bool isPlayer(std::string_view device) {
    const auto colon = device.find(':');
    const bool known = std::find(std::begin(players), std::end(players), device.substr(0, colon)) !=
                       std::end(players);
    return known &&
           (colon == std::string_view::npos ||
            device.substr(colon + 1).find_first_not_of(nameCharacters) == std::string_view::npos);
}

}  // namespace

OutputChoice outputChoice(const std::string& output) {
    if (output == "none") return {};
    if (output.starts_with(alsaPrefix)) {
        return {OutputChoice::alsa, output.substr(alsaPrefix.size())};
    }
    const std::filesystem::path path(output);
    const std::string name = path.filename().string(), extension = path.extension().string();
    if (extension == extensions[OutputChoice::wav]) return {OutputChoice::wav, name};
    if (extension == extensions[OutputChoice::dsf]) return {OutputChoice::dsf, name};
    return {OutputChoice::byFormat, name};
}

std::string outputText(const OutputChoice& choice, const std::string& folder) {
    if (choice.kind == OutputChoice::none) return "none";
    if (choice.kind == OutputChoice::alsa) {
        return std::string(alsaPrefix) + (choice.name.empty() ? "default" : choice.name);
    }
    std::string name = choice.name.empty() ? "audio" : choice.name;
    if (!name.ends_with(extensions[choice.kind])) name += extensions[choice.kind];
    // Without a folder in front a name could read as "none", or as a device.
    return (std::filesystem::path(folder.empty() ? "." : folder) / name).string();
}

std::string objectionTo(const OutputChoice& choice) {
    if (choice.name.empty()) return {};
    switch (choice.kind) {
        case OutputChoice::none:
            return "\"none\" has no name";
        case OutputChoice::alsa:
            return isPlayer(choice.name) ? std::string() : "no such kind of sound device";
        default:
            if (choice.name.find_first_of("/\\:") != std::string::npos || choice.name[0] == '.') {
                return "a file is named without a folder or a colon, and not hidden";
            }
            if (choice.kind == OutputChoice::byFormat && choice.name.find('.') != std::string::npos)
                return "the format gives the extension";
            return {};
    }
}

}  // namespace velmora_target
