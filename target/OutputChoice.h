// Where audio goes, in the two forms that it has: one text, as the command line takes it ("none",
// "alsa:NAME", a path), and a choice with a name, as hosts set it.
//
// A host may be anybody on the link, so its name is a name and no path: files stay in the folder
// that the command line gives, without one there are none, and of sound devices only the kinds are
// taken that play; others write files or run programs.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace velmora_target {

constexpr std::string_view alsaPrefix = "alsa:";

struct OutputChoice {
    enum Kind : std::uint16_t { none, wav, dsf, alsa, byFormat };
    std::uint16_t kind = none;
    std::string name;  // empty: "audio", or the device "default"
};
constexpr std::array<const char*, 5> outputLabels{"none", "WAV file", "DSF file", "ALSA device",
                                                  "WAV or DSF file"};

OutputChoice outputChoice(const std::string& output);
// Files lie in `folder`, the current one where it is empty.
std::string outputText(const OutputChoice& choice, const std::string& folder);
constexpr bool isFile(const OutputChoice& choice) noexcept {
    return choice.kind == OutputChoice::wav || choice.kind == OutputChoice::dsf ||
           choice.kind == OutputChoice::byFormat;
}
// Why a host may not choose that; empty if it may.
std::string objectionTo(const OutputChoice& choice);

}  // namespace velmora_target
