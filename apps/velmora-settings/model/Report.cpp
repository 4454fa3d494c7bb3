#include "apps/velmora-settings/model/Report.h"

#include "apps/velmora-settings/model/Figures.h"
#include "base/Printable.h"
#include "driver/Product.h"

namespace velmora_settings {
namespace {

std::string_view sourceText(const Location& location) {
    switch (location.source) {
        case Location::Source::user:
            return "the user's own";
        case Location::Source::redirected:
            return "named by setting_path.inf";
        case Location::Source::factory:
            return "not made yet: the factory's hold";
        case Location::Source::nothing:
            break;
    }
    return "not made yet: the defaults hold";
}

// A file's text, each line moved in, so that nothing in it looks like a heading.
std::string quoted(const std::string& text) {
    std::string out, line;
    const auto finish = [&] {
        if (!line.empty()) out += "    " + ZENNO::printable(line) + "\n";
        line.clear();
    };
    for (const char c : text) {
        if (c == '\n' || c == '\r') {
            finish();
        } else {
            line += c;
        }
    }
    finish();
    return out.empty() ? "    (nothing)\n" : out;
}

std::string targetsText(const TargetList& targets) {
    std::string out = "    " + targets.statusText() + "\n";
    for (const TargetRow& row : targets.rows()) {
        out += "    " + ZENNO::printable(row.record.targetName) + ", " + row.addressText() +
               ", interface " + row.interfaceText() + ", sink " +
               std::to_string(row.record.sinkNo) + ", version " +
               std::to_string(row.record.version) + (row.isHere ? "" : ", gone") + "\n";
    }
    return out;
}

}  // namespace

std::string reportText(const Document& document, const TargetList& targets,
                       const ReportFacts& facts) {
    std::string out = std::string(driverProductName) + " " + driverReleaseText + "\n";
    out +=
        "System: " + facts.system + ", " + std::to_string(document.cores()) + " physical cores\n";
    out += "Driver: " + facts.module + "\n";
    out += "Settings: " + document.path() + " (" + std::string(sourceText(document.location())) +
           ")\n" + quoted(document.location().foundText);
    if (document.isChanged()) out += "    (changes in the window are not written yet)\n";
    if (!document.debugText().empty()) out += "debug.inf:\n" + quoted(document.debugText());
    for (const std::string& note : document.notes()) out += "Note: " + note + "\n";
    const DriverSettings values = document.reading().values;
    out += "Delay:\n    " + delayText(values, 44100) + "\n    " + delayText(values, 192000) + "\n";
    out += "Transfer (" + std::string(streamFormats()[0].label) + "):\n    " +
           transferText(values, streamFormats()[0].config) + "\n";
    out += "Interfaces:\n";
    for (const std::string& line : facts.interfaces) out += "    " + line + "\n";
    out += "Targets:\n" + targetsText(targets);
    if (!facts.doctor.empty()) out += "Doctor:\n" + quoted(facts.doctor);
    return out;
}

}  // namespace velmora_settings
