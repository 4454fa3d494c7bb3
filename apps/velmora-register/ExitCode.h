// What velmora-register ends with. The setup program and the scripts of the zip hand these numbers
// on as their own (docs/installing.md).
#pragma once

namespace velmora_register {

enum ExitCode {
    exitDone = 0,
    exitAbsent = 1,     // not registered at all
    exitUsage = 2,      // wrong arguments
    exitInUse = 3,      // a program has a file open
    exitFolder = 4,     // hosts could not read the path, or the file is not there
    exitElsewhere = 5,  // registered from another file, which was left alone
    exitNotHeld = 6,    // the registry does not say what it should
    exitNoRights = 7,   // no administrator
};

}  // namespace velmora_register
