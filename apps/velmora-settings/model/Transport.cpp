#include "apps/velmora-settings/model/Transport.h"

namespace velmora_settings {
namespace {

constexpr std::string_view optimize = "Optimize", convert = "CovertS32";
constexpr std::string_view leastLimit = "1000";  // µs: no target is asked for more

struct Words {
    std::string_view flexCycle;
    bool isOptimized, usesFragment;
};

Words wordsOf(TransferCase kind) {
    switch (kind) {
        case TransferCase::fix:
            return {"", false, true};
        case TransferCase::fixAuto:
            return {"", true, true};
        case TransferCase::var:
            return {"enable", false, true};
        case TransferCase::varAuto:
            return {"enable", true, true};
        case TransferCase::varAsio:
            return {"fixAsio", false, false};
        case TransferCase::random:
            return {"random", false, true};
        case TransferCase::profile:
            break;
    }
    return {"", false, false};
}

}  // namespace

void chooseTransfer(Document& document, TransferCase kind) {
    if (transferCase(document.reading().values) == kind) return;
    if (kind == TransferCase::profile) {
        document.setText(FieldId::profileLimit, leastLimit);  // it hides the other two
        return;
    }
    document.setText(FieldId::profileLimit, "0");
    const Words words = wordsOf(kind);
    document.setText(FieldId::flexCycle, words.flexCycle);
    if (!words.usesFragment) return;
    const bool isOptimized = document.text(FieldId::fragment) == optimize;
    if (words.isOptimized) {
        document.setText(FieldId::fragment, optimize);
    } else if (isOptimized) {
        document.setText(FieldId::fragment, "disable");
    }
}

bool convertsIntegers(const Document& document) {
    return document.text(FieldId::pcmRequest) == convert;
}

void setConvertsIntegers(Document& document, bool converts) {
    if (converts != convertsIntegers(document)) {
        document.setText(FieldId::pcmRequest, converts ? convert : "32");
    }
}

}  // namespace velmora_settings
