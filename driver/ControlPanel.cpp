// controlPanel: runs the settings program while the host waits, and picks up what it has changed.
#include "base/InfFile.h"
#include "base/LogLine.h"
#include "driver/AsioVelmora.h"
#include "driver/Edge.h"

using ZENNO::InfFile;
using ZENNO::LogLine;

ASIOError AsioVelmora::controlPanel() {
    return atEdge("controlPanel", ASE_NotPresent, [this] { return runControlPanel(); });
}

ASIOError AsioVelmora::runControlPanel() {
    InfFile before;
    before.load(files_.settingPath);
    const auto started = [this] { LogLine(6) << files_.controlPanelPath; };
    if (!surroundings_.runProgramAndWait(files_.controlPanelPath, started)) {
        LogLine(6) << files_.controlPanelPath << " ERROR";
        return ASE_NotPresent;
    }

    InfFile after;
    after.load(files_.settingPath);
    if (before == after) return ASE_OK;

    if (!reloadSettings()) return ASE_NotPresent;
    // A whole new init: another target, interface or bit depth is in force when this returns. Its
    // 1 or 0 is what the host gets.
    initialised_ = false;
    return init(sysHandle_);
}
