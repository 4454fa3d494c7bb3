// Which file is edited: the one that the driver would load, or the user's own that is to be made.
#pragma once

#include <string>
#include <vector>

#include "apps/velmora-settings/model/Files.h"

namespace velmora_settings {

// Where the files of this computer lie; as the driver has them.
struct Places {
    std::string driverFolder;   // of the driver and its factory's file, with its backslash
    std::string roamingFolder;  // without one; empty where the system knows none
};

struct Location {
    enum class Source {
        user,        // the user's own file
        redirected,  // the one that setting_path.inf names
        factory,     // none yet: the user's own is made from the factory's
        nothing,     // not even the factory's: the user's own is made from nothing
    };
    Source source = Source::nothing;
    std::string path;       // that is edited, or made
    std::string foundText;  // as it lies there; empty where it is to be made
    bool isThere = false;   // it could be read
    bool isUnread = false;  // it is there, but could not be read
    bool isInUse = false;   // a driver that is open by now has it, and hears of what is written
    std::string baseText;   // what changes go into: see baseText()
    std::string factory;    // the factory's text
    bool hasFactory = false;
    std::vector<std::string> notes;  // whole sentences for the user

    bool isToBeMade() const noexcept {
        return source == Source::factory || source == Source::nothing;
    }
};

Location locate(const Places& places, const Files& files);

// What the driver would have of a file that says `found`: the factory's text where the Version is
// another, since the driver puts that in its place; and without the control characters that make a
// file unreadable.
std::string baseText(const std::string& found, const Location& location);

}  // namespace velmora_settings
