// The driver's own finder. On Windows: what the driver's DLL exports, as a settings program gets
// it. Elsewhere: this tree's object itself.
#pragma once

#include "apps/velmora-find/Context.h"

namespace velmora_find {

extern const bool finderIsModule;  // there is a DLL that can be named

// `dll`: the module's file. Empty: the one beside this program, else the one that is registered.
// Throws Stop, with a sentence, when there is none or it does not export the finder.
FinderPointer loadFinder(const std::string& dll);

}  // namespace velmora_find
