// The names of the window and the numbers of its controls, for the program and for the test that
// drives it.
#pragma once

#include "apps/velmora-settings/model/Fields.h"

namespace velmora_settings {

inline constexpr wchar_t windowClass[] = L"VelmoraSettingsWindow";
inline constexpr wchar_t instanceMark[] = L"Local\\KORVENTE Velmora settings";

// The control of one field.
constexpr int fieldControl(FieldId id) noexcept {
    return 1000 + static_cast<int>(id);
}

enum ControlId : int {
    idNone = 0xffff,  // labels and hints, which nobody asks for
    idTabs = 100,
    idMessage,
    idPages,  // and the three behind it: the four pages

    idTargets = 200,
    idSearchingLabel,
    idSearching,
    idTargetState,
    idSearchAgain,
    idUseAlways,
    idUseAny,

    idConvert = 300,
    idDelay44,
    idDelay192,

    idTransferKind = 400,
    idTransferAbout,
    idFormat,
    idFigures,
    idWaitMode,
    idWaitCost,
    idAveraging,
    idYielding,
    idCritical,
    idOccupied,
    idSocketNoBlock,
    idNoFastFeedback,

    idViewer = 500,
    idPath,
    idNotes,
    idDoctor,
    idDoctorSays,
    idCopyReport,
};

enum PageNumber : int { pageTarget, pageAudio, pageTransport, pageDiagnostics, pageCount };

}  // namespace velmora_settings
