// The page Diagnostics: the log and its viewer, what is to be known about the file, the doctor, and
// a report to copy.
#include <cstring>

#include "apps/velmora-settings/model/Address.h"
#include "apps/velmora-settings/model/Report.h"
#include "apps/velmora-settings/windows/Page.h"
#include "apps/velmora-settings/windows/Text.h"
#include "base/Printable.h"
#include "src/Network/LocalInterfaces.h"

namespace velmora_settings {
namespace {

constexpr int idLog = fieldControl(FieldId::debug);

std::string systemText() {
    using Ask = LONG(WINAPI*)(OSVERSIONINFOW*);
    // Asked for by name: what the documented call answers depends on the program's manifest.
    const auto ask = reinterpret_cast<Ask>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (ask == nullptr || ask(&version) != 0) return "Windows";
    return "Windows " + std::to_string(version.dwMajorVersion) + "." +
           std::to_string(version.dwMinorVersion) + "." + std::to_string(version.dwBuildNumber);
}

std::vector<std::string> interfaceLines() {
    std::vector<std::string> lines;
    ZENNO::LocalInterfaceMap local;
    ZENNO::getMyLinkLocalAddresV6(local, /*keepLoopback=*/false);
    for (const auto& [address, names] : local) {
        lines.push_back(std::to_string(address.scope) + ": " + ZENNO::printable(names.name) + ", " +
                        addressText(address));
    }
    if (lines.empty()) lines.push_back("none with an IPv6 address of the link");
    return lines;
}

// A window's lines end by two characters.
std::string asLines(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\r') continue;
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

bool putOnClipboard(HWND owner, const std::string& text) {
    const std::wstring shown = wide(asLines(text));
    const std::size_t bytes = (shown.size() + 1) * sizeof(wchar_t);
    if (!OpenClipboard(owner)) return false;
    EmptyClipboard();
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, bytes);
    void* const place = memory != nullptr ? GlobalLock(memory) : nullptr;
    bool isPut = false;
    if (place != nullptr) {
        std::memcpy(place, shown.c_str(), bytes);
        GlobalUnlock(memory);
        isPut = SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
    }
    if (!isPut && memory != nullptr) GlobalFree(memory);  // else it is the clipboard's
    CloseClipboard();
    return isPut;
}

class DiagnosticsPage final : public Page {
public:
    explicit DiagnosticsPage(Context& context) : Page(context, pageDiagnostics) {}

    void refresh() override {
        std::string notes;
        for (const std::string& note : context_.document.notes()) notes += note + "\r\n";
        if (context_.module.finder() == nullptr) notes += context_.module.about() + "\r\n";
        show(idNotes, notes.empty() ? "Nothing: the driver takes all that it says." : notes);
        show(idPath, context_.document.path() +
                         (context_.document.location().isThere ? "" : " (made on OK)"));
    }

    void onDoctorDone() override {
        says_ = context_.doctor.take();
        show(idDoctorSays, asLines(says_));
        refresh();
    }

private:
    void fillRest() override {
        setChoices(idLog,
                   {{"off", ""}, {"what happens", "enable"}, {"every packet of the talk", "debug"}},
                   context_.document.text(FieldId::debug));
    }

    bool takeRest(int id, int /*code*/) override {
        if (id != idLog) return false;
        context_.document.setText(FieldId::debug, chosen(id));
        return true;
    }

    bool press(int id) override {
        std::string sentence;
        if (id == idViewer) {
            if (!startProgram(context_.folder + "velmora-log.exe", sentence)) {
                tell(context_.frame, sentence, /*isFault=*/true);
            }
        } else if (id == idDoctor) {
            startDoctor();
        } else if (id == idCopyReport) {
            copyReport();
        } else {
            return false;
        }
        return true;
    }

    void startDoctor() {
        std::string sentence;
        if (context_.doctor.isRunning()) return;
        if (context_.doctor.start(context_.frame, context_.folder + "velmora-find.exe", sentence)) {
            show(idDoctorSays,
                 "The doctor looks at every interface; that takes up to two minutes.");
        } else {
            show(idDoctorSays, sentence);
        }
        refresh();
    }

    void copyReport() {
        const ReportFacts facts{systemText(), context_.module.about(), interfaceLines(), says_};
        if (putOnClipboard(context_.frame,
                           reportText(context_.document, context_.targets, facts))) {
            tell(context_.frame, "The report is on the clipboard: put it into a message.",
                 /*isFault=*/false);
        } else {
            tell(context_.frame, "Another program holds the clipboard: try once more.",
                 /*isFault=*/true);
        }
    }

    std::string says_;  // the doctor, last time
};

}  // namespace

std::unique_ptr<Page> makeDiagnosticsPage(Context& context) {
    return std::make_unique<DiagnosticsPage>(context);
}

}  // namespace velmora_settings
