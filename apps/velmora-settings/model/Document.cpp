#include "apps/velmora-settings/model/Document.h"

#include <utility>

#include "apps/velmora-settings/model/SettingsText.h"
#include "base/Path.h"

namespace velmora_settings {
namespace {

constexpr std::string_view lowSection = "LOW";

std::string folderOf(std::string path) {
    return ZENNO::folderOf(path) ? path : std::string();
}

constexpr const char* onlyWhenOpened =
    "audio software that has the driver open reads them when it opens the driver anew.";

// debug.inf is read on top, and may make this machine a small one or a large one.
bool isLowWith(const std::string& base, const std::string& debug, std::int32_t cores) {
    ZENNO::InfFile tree;
    tree.parseText(withoutMark(base));
    tree.parseText(withoutMark(debug));
    return readSettings(tree, cores).isLow;
}

}  // namespace

Document Document::open(const Places& places, std::int32_t cores, Files files) {
    Document document;
    document.files_ = std::move(files);
    document.location_ = locate(places, document.files_);
    document.cores_ = cores;
    const std::string folder = folderOf(document.location_.path);
    if (!document.files_.read(folder + "debug.inf", document.debugText_) ||
        hasControlCharacters(document.debugText_)) {
        document.debugText_.clear();
    }
    document.takeTexts(document.location_.baseText);
    return document;
}

void Document::takeTexts(const std::string& base) {
    isLow_ = isLowWith(base, debugText_, cores_);
    const Reading reading = readSettings(base, isLow_);
    for (const Field& field : fields()) loaded_[at(field.id)] = fieldText(field.id, reading);
    texts_ = loaded_;
    ignored_ = reading.ignored;
    partly_ = reading.partly;
}

std::string_view Document::sectionOf(FieldId id) const noexcept {
    return isLow_ && fieldOf(id).followsLow ? lowSection : globalSection;
}

void Document::setText(FieldId id, std::string_view text) {
    texts_[at(id)] = text;
}

void Document::setOn(FieldId id, bool isOn) {
    setText(id, isOn ? fieldOf(id).words[0] : std::string_view());
}

std::vector<Problem> Document::problems() const {
    std::vector<Problem> found;
    const auto isTouched = [this](FieldId id) { return texts_[at(id)] != loaded_[at(id)]; };
    for (const Field& field : fields()) {
        if (!isTouched(field.id)) continue;
        std::string sentence = refusal(field.id, texts_[at(field.id)]);
        if (!sentence.empty()) found.push_back({field.id, std::move(sentence)});
    }
    if (!found.empty()) return found;
    for (const Contradiction& both : contradictions(reading().values)) {
        if (!isTouched(both.one) && !isTouched(both.other)) continue;
        found.push_back({both.one, both.sentence});
    }
    return found;
}

std::string Document::changedText(const std::string& base) const {
    std::string text = base;
    for (const Field& field : fields()) {
        const std::string& now = texts_[at(field.id)];
        if (now == loaded_[at(field.id)] || !refusal(field.id, now).empty()) continue;
        text = withValue(text, sectionOf(field.id), field.key, fileValue(field.id, now));
    }
    return withTheRestAsItWas(std::move(text), base);
}

// FlexCycle=random takes Fragment=Optimize back; with another FlexCycle that would hold again. What
// nobody has touched goes on as it was shown.
std::string Document::withTheRestAsItWas(std::string text, const std::string& base) const {
    const Reading before = readSettings(base, isLow_), after = readSettings(text, isLow_);
    for (const Field& field : fields()) {
        if (texts_[at(field.id)] != loaded_[at(field.id)]) continue;
        const std::string was = fieldText(field.id, before);
        if (fieldText(field.id, after) == was) continue;
        text = withValue(text, sectionOf(field.id), field.key, fileValue(field.id, was));
    }
    return text;
}

Reading Document::reading() const {
    return readSettings(changedText(location_.baseText), isLow_);
}

SaveResult Document::failedRead() const {
    return {false, false,
            path() +
                " cannot be read, so nothing was written: close the program that holds it and "
                "press OK again."};
}

SaveResult Document::save() {
    if (!isChanged()) return {true, false, {}};
    if (const auto found = problems(); !found.empty()) return {false, false, found[0].sentence};

    // Somebody may have written meanwhile: what they said stays, and so does what is said here.
    std::string found, base = location_.baseText;
    const bool isThere = files_.kind(path()) != Files::FileKind::missing;
    if (isThere) {
        if (!files_.read(path(), found)) return failedRead();
        if (!location_.isThere || found != location_.foundText) base = baseText(found, location_);
    } else if (const std::string folder = folderOf(path());
               folder.empty() || !files_.makeFolder(folder)) {
        return {false, false, writeSentence(Files::WriteOutcome::noFolder, path())};
    }

    const std::string text = changedText(base);
    if (isThere && text == found) return {true, false, {}};
    const Files::WriteOutcome outcome = files_.replace(path(), text);
    if (outcome != Files::WriteOutcome::done) {
        return {false, false, writeSentence(outcome, path())};
    }
    SaveResult result{true, true, {}};
    if (location_.isToBeMade()) {
        result.sentence = "Your own settings now lie in " + path() + ": " + onlyWhenOpened;
        location_.source = Location::Source::user;
    } else if (!location_.isInUse) {
        result.sentence = "The changes are written to " + path() + ": " + onlyWhenOpened;
    }
    location_.isThere = true;
    location_.isUnread = false;
    location_.foundText = location_.baseText = text;
    takeTexts(text);
    return result;
}

// A driver that found no file of the user's, or one that it does not read, went on with another and
// looks there alone for what has changed.
std::string Document::okSentence() const {
    if (!location_.isInUse) return std::string("OK writes the changes; ") + onlyWhenOpened;
    return "OK writes the changes; the audio software that opened this then searches anew.";
}

std::vector<std::string> Document::notes() const {
    std::vector<std::string> notes = location_.notes;
    for (const std::string& line : ignored_) {
        notes.push_back("The driver ignores \"" + line + "\" in the file, and the default holds.");
    }
    for (const std::string& line : partly_) {
        notes.push_back("The driver takes only what is an address of \"" + line +
                        "\" in the file.");
    }
    ZENNO::InfFile debug;
    debug.parseText(withoutMark(debugText_));
    std::string keys;
    for (const Field& field : fields()) {
        debug.selectSection(sectionOf(field.id));
        if (debug.get(field.key).empty()) continue;
        keys += (keys.empty() ? "" : ", ") + std::string(field.key);
    }
    if (!keys.empty()) {
        notes.push_back("debug.inf beside the settings wins over what is set here for " + keys +
                        ": delete it when you need it no more.");
    }
    if (isLow_) {
        notes.push_back("CPULOW calls this computer with its " + std::to_string(cores_) +
                        (cores_ == 1 ? " core" : " cores") +
                        " a small one: the fields from the cycle time on are read from the "
                        "section LOW, and are written there.");
    }
    return notes;
}

std::string writeSentence(Files::WriteOutcome outcome, const std::string& path) {
    using Outcome = Files::WriteOutcome;
    switch (outcome) {
        case Outcome::done:
            return {};
        case Outcome::noFolder:
            return "The folder of " + path +
                   " is not there and could not be made: make it, or bring its drive back, and "
                   "press OK again.";
        case Outcome::readOnly:
            return path +
                   " is write-protected and was left as it is: take that mark off in the file's "
                   "properties and press OK again.";
        case Outcome::inUse:
            return path +
                   " is held by another program and was left as it is: close that program and "
                   "press OK again.";
        case Outcome::noRoom:
            return "The disk has no room for " + path +
                   ", which was left as it is: make some and press OK again.";
        case Outcome::refused:
            return "You have no right to write " + path +
                   ", which was left as it is: ask for it, or save as another user.";
    }
    return {};
}

}  // namespace velmora_settings
