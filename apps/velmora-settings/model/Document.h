// The settings while they are edited: what each field says, what is wrong with it, and the file
// that comes of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/velmora-settings/model/Fields.h"
#include "apps/velmora-settings/model/Location.h"
#include "apps/velmora-settings/model/Reading.h"

namespace velmora_settings {

struct Problem {
    FieldId field;
    std::string sentence;
};

struct SaveResult {
    bool isSaved = false;
    bool isWritten = false;  // false too where nothing was changed
    std::string sentence;    // what went wrong and what helps, or what to know; may be empty
};

class Document {
public:
    static Document open(const Places& places, std::int32_t cores, Files files);

    const std::string& path() const noexcept { return location_.path; }
    const Location& location() const noexcept { return location_; }
    std::int32_t cores() const noexcept { return cores_; }
    // The section that the driver reads this field's key from, on this machine.
    std::string_view sectionOf(FieldId id) const noexcept;

    // As the driver takes it from the file; then as it was set here.
    const std::string& text(FieldId id) const noexcept { return texts_[at(id)]; }
    void setText(FieldId id, std::string_view text);
    bool isOn(FieldId id) const noexcept { return !text(id).empty(); }
    void setOn(FieldId id, bool isOn);

    bool isChanged() const noexcept { return texts_ != loaded_; }
    // Of what was changed here alone: a file that came with a fault may be left alone.
    std::vector<Problem> problems() const;
    // By all that is sound here, as the driver would read it without debug.inf.
    Reading reading() const;

    // Nothing changed: no file is touched. Else what the file says by now, with these changes in
    // it; whole or not at all.
    SaveResult save();

    // What OK does with the changes, and when audio software hears of them.
    std::string okSentence() const;

    // Sentences about the file: what the driver ignores in it, what debug.inf overrides.
    std::vector<std::string> notes() const;
    const std::string& debugText() const noexcept { return debugText_; }  // of debug.inf

private:
    Document() = default;
    static std::size_t at(FieldId id) noexcept { return static_cast<std::size_t>(id); }
    void takeTexts(const std::string& base);
    std::string changedText(const std::string& base) const;
    std::string withTheRestAsItWas(std::string text, const std::string& base) const;
    std::string writtenText() const;
    SaveResult failedRead() const;

    Files files_;
    Location location_;
    std::int32_t cores_ = 0;
    bool isLow_ = false;
    std::string debugText_;
    std::vector<std::string> ignored_, partly_;
    std::array<std::string, fieldCount> loaded_, texts_;
};

// Why a file could not be written, and what helps.
std::string writeSentence(Files::WriteOutcome outcome, const std::string& path);

}  // namespace velmora_settings
