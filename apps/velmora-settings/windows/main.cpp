// The settings program: a window over the file that the driver reads.
#include <windows.h>

#include <commctrl.h>
#include <objbase.h>

#include <exception>

#include "apps/velmora-settings/model/Document.h"
#include "apps/velmora-settings/windows/Instance.h"
#include "apps/velmora-settings/windows/Module.h"
#include "apps/velmora-settings/windows/Window.h"
#include "base/Processor.h"
#include "platform/System.h"

namespace {

using namespace velmora_settings;

std::string programFolder() {
    const std::string program = ZENNO::platform::processPath();
    return program.substr(0, program.rfind('\\') + 1);
}

int runProgram() {
    Instance instance;
    if (!instance.isFirst() && instance.bringFirstToFront()) return 0;
    if (!instance.isFirst()) {
        tell(nullptr,
             "The settings are open already but show no window: end velmora-settings.exe in the "
             "task manager and start it again.",
             /*isFault=*/true);
        return 1;
    }
    const std::string folder = programFolder();
    Document document = Document::open({folder, ZENNO::platform::roamingFolder()},
                                       ZENNO::physicalCoreCount(), Files::ofThisComputer());
    Module module;
    module.load(folder);
    Window window(document, module, folder);
    if (window.run()) return 0;
    tell(nullptr, "The window could not be made: close other programs and start this one again.",
         /*isFault=*/true);
    return 1;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    const INITCOMMONCONTROLSEX controls{sizeof controls, ICC_STANDARD_CLASSES | ICC_TAB_CLASSES |
                                                             ICC_LISTVIEW_CLASSES |
                                                             ICC_PROGRESS_CLASS};
    InitCommonControlsEx(&controls);
    const HRESULT com = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    int code = 1;
    try {
        code = runProgram();
    } catch (const std::exception&) {
        tell(nullptr, "Memory is short, and nothing was written: close other programs.",
             /*isFault=*/true);
    }
    if (SUCCEEDED(com)) CoUninitialize();
    return code;
}
