#include "apps/velmora-settings/windows/Tables.h"

namespace velmora_settings {
namespace {

using K = Control::Kind;
using F = FieldId;

constexpr int at(FieldId id) {
    return fieldControl(id);
}

constexpr Control frame[] = {
    {K::text, idMessage, "", 10, 508, 620, 32},
    {K::defaultButton, IDOK, "OK", 456, 546, 84, 26},
    {K::button, IDCANCEL, "Cancel", 548, 546, 84, 26},
};

constexpr Control target[] = {
    {K::label, idNone, "&Targets in your network:", 10, 10, 360, 16},
    {K::list, idTargets, "", 10, 28, 592, 148},
    {K::label, idSearchingLabel, "Searching:", 386, 10, 80, 16},
    {K::progress, idSearching, "", 470, 12, 132, 12},
    {K::text, idTargetState, "", 10, 182, 592, 32},
    {K::button, idSearchAgain, "&Search again", 10, 220, 120, 26},
    {K::button, idUseAlways, "&Always use this one", 138, 220, 160, 26},
    {K::button, idUseAny, "Use the &first in the list", 306, 220, 190, 26},

    {K::label, idNone, "Target's a&ddress:", 10, 264, 150, 16},
    {K::edit, at(F::targetAddress), "", 164, 260, 260, 23},
    {K::hint, idNone, "IPv6 address, comma, port; empty: it is searched for", 164, 285, 438, 16},
    {K::label, idNone, "Sin&k of that target:", 10, 310, 150, 16},
    {K::number, at(F::targetPO), "", 164, 306, 90, 23},
    {K::hint, at(F::targetPO) + 100, "", 262, 310, 340, 16},
    {K::label, idNone, "Network &interface:", 10, 338, 150, 16},
    {K::combo, at(F::networkInterface), "", 164, 334, 260, 23},
    {K::hint, idNone, "on which is searched", 432, 338, 170, 16},
    {K::label, idNone, "Further add&resses:", 10, 366, 150, 16},
    {K::edit, at(F::findIP), "", 164, 362, 438, 23},
    {K::hint, idNone, "IPv6 addresses with a semicolon between them, asked in a search", 164, 387,
     438, 16},
    {K::check, at(F::nopBreak),
     "Send a &message ahead of every question (only where you were told to)", 10, 416, 592, 20},
};

constexpr Control audio[] = {
    {K::label, idNone, "&Bit depth wished for:", 10, 14, 180, 16},
    {K::combo, at(F::pcmRequest), "", 194, 10, 180, 23},
    {K::hint, idNone, "the nearest that the target has", 382, 14, 220, 16},
    {K::check, idConvert, "&Convert: the software always works in 32-bit integers", 10, 42, 592,
     20},
    {K::check, at(F::dsdMsb), "&DSD on, the highest bit of each byte first", 10, 66, 592, 20},
    {K::check, at(F::phase), "&Invert the polarity of the sound", 10, 90, 592, 20},

    {K::label, idNone, "&Fixed buffer size:", 10, 126, 180, 16},
    {K::number, at(F::bufferSize), "", 194, 122, 90, 23},
    {K::hint, at(F::bufferSize) + 100, "", 292, 126, 310, 16},
    {K::label, idNone, "&Smallest buffer:", 10, 156, 180, 16},
    {K::number, at(F::bufferSizeMin), "", 194, 152, 90, 23},
    {K::hint, at(F::bufferSizeMin) + 100, "", 292, 156, 310, 16},
    {K::label, idNone, "&Largest buffer:", 10, 184, 180, 16},
    {K::number, at(F::bufferSizeMax), "", 194, 180, 90, 23},
    {K::hint, at(F::bufferSizeMax) + 100, "", 292, 184, 310, 16},
    {K::label, idNone, "&Recommended buffer:", 10, 212, 180, 16},
    {K::number, at(F::bufferSizePre), "", 194, 208, 90, 23},
    {K::hint, at(F::bufferSizePre) + 100, "", 292, 212, 310, 16},
    {K::label, idNone, "Rin&g depth:", 10, 240, 180, 16},
    {K::number, at(F::syncBufferCount), "", 194, 236, 90, 23},
    {K::hint, at(F::syncBufferCount) + 100, "", 292, 240, 310, 16},
    {K::check, at(F::bufferMulti), "&More buffers at higher rates, so that they last equally long",
     10, 266, 592, 20},
    {K::label, idNone, "&Target's own buffer:", 10, 298, 180, 16},
    {K::number, at(F::latencyBuffer), "", 194, 294, 90, 23},
    {K::hint, at(F::latencyBuffer) + 100, "", 292, 298, 310, 16},
    {K::label, idNone, "&Wait after the start:", 10, 328, 180, 16},
    {K::number, at(F::startDelay), "", 194, 324, 90, 23},
    {K::hint, at(F::startDelay) + 100, "", 292, 328, 310, 16},

    {K::label, idNone, "Delay that comes of it:", 10, 362, 592, 16},
    {K::text, idDelay44, "", 22, 382, 580, 32},
    {K::text, idDelay192, "", 22, 416, 580, 32},
};

constexpr Control transport[] = {
    {K::label, idNone, "&Kind of transfer:", 10, 12, 150, 16},
    {K::combo, idTransferKind, "", 164, 8, 260, 23},
    {K::text, idTransferAbout, "", 164, 34, 438, 48},
    {K::label, idNone, "&Cycle time:", 10, 88, 150, 16},
    {K::number, at(F::cycleTime), "", 164, 84, 90, 23},
    {K::hint, at(F::cycleTime) + 100, "", 262, 88, 340, 16},
    {K::label, idNone, "&Packets of a cycle:", 10, 114, 150, 16},
    {K::comboEdit, at(F::fragment), "", 164, 110, 200, 23},
    {K::hint, idNone, "1 to 65535, or all that it takes", 372, 114, 230, 16},
    {K::label, idNone, "S&hortest cycle:", 10, 140, 150, 16},
    {K::number, at(F::cycleMinTime), "", 164, 136, 90, 23},
    {K::hint, at(F::cycleMinTime) + 100, "", 262, 140, 340, 16},
    {K::label, idNone, "&Not more often than:", 10, 166, 150, 16},
    {K::number, at(F::profileLimit), "", 164, 162, 90, 23},
    {K::hint, at(F::profileLimit) + 100, "", 262, 166, 340, 16},
    {K::label, idNone, "Ask the target &every:", 10, 192, 150, 16},
    {K::number, at(F::infoCycle), "", 164, 188, 90, 23},
    {K::hint, at(F::infoCycle) + 100, "", 262, 192, 340, 16},

    {K::label, idNone, "What comes of it &for:", 10, 224, 150, 16},
    {K::combo, idFormat, "", 164, 220, 260, 23},
    {K::hint, idNone, "over plain Ethernet", 432, 224, 170, 16},
    {K::text, idFigures, "", 164, 246, 438, 48},

    {K::label, idNone, "The sending &thread:", 10, 302, 150, 16},
    {K::combo, idWaitMode, "", 164, 298, 260, 23},
    {K::hint, idNone, "while it waits", 432, 302, 170, 16},
    {K::text, idWaitCost, "", 164, 324, 438, 32},
    {K::check, idCritical, "H&ighest priority that there is", 10, 360, 290, 20},
    {K::check, idOccupied, "A p&rocessor of its own", 306, 360, 296, 20},
    {K::check, idSocketNoBlock, "Ne&ver waits for the network card", 10, 384, 290, 20},
    {K::check, idNoFastFeedback, "No catching &up after a hold-up", 306, 384, 296, 20},
    {K::label, idNone, "&Average answers over:", 10, 414, 150, 16},
    {K::combo, idAveraging, "", 164, 410, 60, 23},
    {K::label, idNone, "&Lets others run:", 244, 414, 116, 16},
    {K::combo, idYielding, "", 364, 410, 238, 23},
};

constexpr Control diagnostics[] = {
    {K::label, idNone, "&Log:", 10, 14, 60, 16},
    {K::combo, at(F::debug), "", 74, 10, 260, 23},
    {K::hint, idNone, "to port 19640 of this computer", 342, 14, 260, 16},
    {K::button, idViewer, "Open the log &viewer", 74, 38, 160, 26},
    {K::label, idNone, "Settings &file:", 10, 78, 592, 16},
    {K::memo, idPath, "", 10, 96, 592, 36},
    {K::label, idNone, "What is to be &known about it:", 10, 140, 592, 16},
    {K::memo, idNotes, "", 10, 158, 592, 84},
    {K::button, idDoctor, "&Doctor: why is a target not found?", 10, 252, 250, 26},
    {K::button, idCopyReport, "Copy a &report for who helps you", 268, 252, 240, 26},
    {K::label, idNone, "The doctor &says:", 10, 288, 592, 16},
    {K::memo, idDoctorSays, "", 10, 306, 592, 146},
};

struct Page {
    std::string_view title;
    std::span<const Control> controls;
};
constexpr Page pages[] = {
    {"Target", target},
    {"Audio", audio},
    {"Transport", transport},
    {"Diagnostics", diagnostics},
};
static_assert(std::size(pages) == pageCount);

}  // namespace

std::span<const Control> frameControls() noexcept {
    return frame;
}

std::span<const Control> pageControls(int page) noexcept {
    return pages[page].controls;
}

std::string_view pageTitle(int page) noexcept {
    return pages[page].title;
}

}  // namespace velmora_settings
