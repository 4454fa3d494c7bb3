#include "apps/velmora-settings/model/Location.h"

#include <string_view>

#include "apps/velmora-settings/model/SettingsText.h"
#include "base/InfFile.h"
#include "driver/Product.h"
#include "driver/Settings.h"

namespace velmora_settings {
namespace {

using ZENNO::InfFile;

std::string valueOf(std::string_view text, std::string_view key) {
    InfFile tree;
    tree.parseText(withoutMark(text));
    return tree.get(key);
}

// As the driver's reader takes a file, or leaves it.
bool readSound(const Files& files, const std::string& path, std::string& text) {
    return !path.empty() && files.read(path, text) && !hasControlCharacters(text);
}

bool hasOtherVersion(const std::string& text, const Location& location) {
    return location.hasFactory && valueOf(text, "Version") != valueOf(location.factory, "Version");
}

void takeFound(Location& location, Location::Source source, const std::string& path,
               const std::string& text) {
    location.source = source;
    location.path = path;
    location.foundText = text;
    location.isThere = true;
    location.baseText = baseText(text, location);
    const bool isRefused = hasControlCharacters(text);
    location.isInUse = !isRefused;
    const bool isOfAnother = hasOtherVersion(withoutControlCharacters(text), location);
    if (isRefused && isOfAnother) {
        location.notes.push_back(
            path +
            " holds a tab or another control character and is of another release: the driver "
            "cannot read it and leaves it alone; what is shown here is the factory's, and OK with "
            "a change writes that in its place.");
    } else if (isRefused) {
        location.notes.push_back(
            path +
            " holds a tab or another control character, so the driver reads none of it: "
            "change something here and press OK to have it written without.");
    } else if (isOfAnother) {
        location.notes.push_back(
            path +
            " is of another release, and the driver puts the factory's settings in its "
            "place: what is shown here is theirs; keep a copy of the file if you need it.");
    }
}

// Nothing of the user's is there: it will be made, in the user's own folder.
void takeFactory(Location& location, const std::string& userPath) {
    location.source = location.hasFactory ? Location::Source::factory : Location::Source::nothing;
    location.path = userPath;
    location.baseText = location.hasFactory ? location.factory
                                            : "Version=" + std::string(driverReleaseText) + "\r\n";
}

void readFactory(Location& location, const std::string& path, const Files& files) {
    location.hasFactory = readSound(files, path, location.factory);
    if (location.hasFactory) return;
    location.factory.clear();
    location.notes.push_back(path +
                             " cannot be read, so the driver's audio software finds no settings "
                             "program: install KORVENTE Velmora again.");
}

}  // namespace

std::string baseText(const std::string& found, const Location& location) {
    const std::string sound = withoutControlCharacters(found);
    if (hasOtherVersion(sound, location)) return location.factory;
    return hasControlCharacters(found) ? sound : found;
}

Location locate(const Places& places, const Files& files) {
    Location location;
    readFactory(location, places.driverFolder + factorySettingName, files);
    const std::string userPath = userSettingPath(places.roamingFolder, driverProductName);

    std::string text;
    if (files.read(userPath, text)) {
        takeFound(location, Location::Source::user, userPath, text);
        return location;
    }
    if (files.kind(userPath) != Files::FileKind::missing) {
        takeFactory(location, userPath);
        location.source = Location::Source::user;
        location.isUnread = true;
        location.notes.push_back(userPath +
                                 " cannot be read: close the program that holds it, or ask for "
                                 "the right to read it, and open the settings again.");
        return location;
    }

    std::string redirection;
    if (readSound(files, places.driverFolder + "setting_path.inf", redirection)) {
        const std::string elsewhere = valueOf(redirection, "SettingPath");
        if (readSound(files, elsewhere, text)) {
            takeFound(location, Location::Source::redirected, elsewhere, text);
            return location;
        }
        if (!elsewhere.empty()) {
            location.notes.push_back(elsewhere +
                                     ", which setting_path.inf names, cannot be read, so the "
                                     "factory's settings hold: bring that file back, or make your "
                                     "own here.");
        }
    }
    takeFactory(location, userPath);
    return location;
}

}  // namespace velmora_settings
