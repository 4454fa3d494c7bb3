// The page Transport: how the stream is cut into bursts, what comes of it for a format, and how the
// sending thread waits.
#include "apps/velmora-settings/model/Figures.h"
#include "apps/velmora-settings/model/Transport.h"
#include "apps/velmora-settings/windows/Page.h"
#include "apps/velmora-settings/windows/Text.h"
#include "base/Number.h"
#include "sync/ThreadMode.h"

namespace velmora_settings {
namespace {

constexpr int idFragment = fieldControl(FieldId::fragment);
constexpr std::string_view allPackets = "all that the target takes";

struct Bit {
    int id;
    std::uint32_t flag;
};
constexpr Bit bits[] = {
    {idCritical, VELMORA::CRITICAL},
    {idOccupied, VELMORA::OCCUPIED},
    {idSocketNoBlock, VELMORA::SOCKETNOBLOCK},
    {idNoFastFeedback, VELMORA::NOFASTFEEDBACK},
};
constexpr std::uint32_t yields = VELMORA::SLEEP0ONCE | VELMORA::SLEEP0ALWAYS;
constexpr int feedbackShift = 5;

std::string number(std::uint32_t value) {
    return std::to_string(value);
}

std::uint32_t numberOf(const std::string& text) {
    return static_cast<std::uint32_t>(ZENNO::readInteger(text));
}

// Fragment as a person reads it, and back.
std::string packetsShown(const std::string& text) {
    if (text == "enable") return std::string(allPackets);
    if (text == "disable") return "1";
    return text == "Optimize" ? "as few as it takes" : text;
}
std::string packetsMeant(const std::string& shown) {
    if (shown == allPackets || shown == "0") return "enable";
    return shown == "1" ? "disable" : shown;
}

class TransportPage final : public Page {
public:
    explicit TransportPage(Context& context) : Page(context, pageTransport) {}

    void refresh() override {
        const DriverSettings values = settings();
        const TransferKind& kind = transferKindOf(values);
        show(idTransferAbout, kind.about);
        enable(fieldControl(FieldId::cycleTime), kind.usesCycle);
        enable(idFragment, kind.usesPackets);
        enable(fieldControl(FieldId::cycleMinTime), kind.usesShortest);
        enable(fieldControl(FieldId::profileLimit), kind.usesLimit);
        const VELMORA::SinkConfig format = chosenFormat();
        show(idFigures, transferText(values, format));
        const TransferFigures figures = transferFigures(values, format);
        const std::uint32_t cycle = figures.isPossible ? figures.cycle : values.cycleTime;
        show(idWaitCost, waitText(values, context_.document.cores(), cycle));
    }

private:
    DriverSettings settings() const { return context_.document.reading().values; }

    VELMORA::SinkConfig chosenFormat() const {
        const std::size_t number = numberOf(chosen(idFormat));
        return streamFormats()[number < streamFormats().size() ? number : 0].config;
    }

    void prepare() override {
        Choices formats;
        for (const StreamFormat& format : streamFormats()) {
            formats.push_back({std::string(format.label), std::to_string(formats.size())});
        }
        setChoices(idFormat, formats, "0");
        for (const char* packets : {"1", "2", "3", "4", "5", "6", "8", "10"}) {
            SendMessageW(control(idFragment), CB_ADDSTRING, 0,
                         reinterpret_cast<LPARAM>(wide(packets).c_str()));
        }
        SendMessageW(control(idFragment), CB_ADDSTRING, 0,
                     reinterpret_cast<LPARAM>(wide(allPackets).c_str()));
    }

    void fillRest() override {
        fillTransfer();
        const std::uint32_t mode = settings().threadMode;
        Choices waits, depths;
        for (const WaitChoice& wait : waitChoices()) {
            waits.push_back(
                {std::string(wait.name), number(static_cast<std::uint32_t>(wait.mode))});
        }
        setChoices(idWaitMode, waits, number(static_cast<std::uint32_t>(waitModeOf(mode))));
        for (std::uint32_t depth = 1; depth <= 8; ++depth) {
            depths.push_back({number(depth), number(depth)});
        }
        setChoices(idAveraging, depths, number(VELMORA::feedbackDepth(mode)));
        setChoices(idYielding,
                   {{"no", "0"},
                    {"once a cycle", number(VELMORA::SLEEP0ONCE)},
                    {"whenever it looks at the clock", number(VELMORA::SLEEP0ALWAYS)}},
                   number((mode & VELMORA::SLEEP0ALWAYS) != 0 ? mode & VELMORA::SLEEP0ALWAYS
                                                              : mode & yields));
        for (const Bit& bit : bits) setChecked(bit.id, (mode & bit.flag) != 0);
    }

    void fillTransfer() {
        Choices kinds;
        for (const TransferKind& kind : transferKinds()) {
            kinds.push_back({std::string(kind.name), std::to_string(static_cast<int>(kind.kind))});
        }
        const TransferCase now = transferKindOf(settings()).kind;
        setChoices(idTransferKind, kinds, std::to_string(static_cast<int>(now)));
        show(idFragment, packetsShown(context_.document.text(FieldId::fragment)));
    }

    bool takeRest(int id, int code) override {
        if (id == idTransferKind) {
            chooseTransfer(context_.document, static_cast<TransferCase>(numberOf(chosen(id))));
            fill();
            return true;
        }
        if (id == idFragment) {
            takePackets(code);
            return true;
        }
        return id == idFormat || takeThreadMode(id);
    }

    // A line of the list that was just chosen stands in the edit a moment later only; while
    // somebody types, the list may still have the line of before, or one that begins alike.
    void takePackets(int code) {
        const LRESULT line = SendMessageW(control(idFragment), CB_GETCURSEL, 0, 0);
        std::string shown = textOf(control(idFragment));
        if (code == CBN_SELCHANGE && line >= 0) {
            wchar_t text[64] = {};
            SendMessageW(control(idFragment), CB_GETLBTEXT, static_cast<WPARAM>(line),
                         reinterpret_cast<LPARAM>(text));
            shown = narrow(text);
        }
        context_.document.setText(FieldId::fragment, packetsMeant(shown));
    }

    bool takeThreadMode(int id) {
        std::uint32_t mode = settings().threadMode;
        if (id == idWaitMode) {
            mode = withWaitMode(mode, static_cast<WaitMode>(numberOf(chosen(id))));
        } else if (id == idAveraging) {
            mode &= ~std::uint32_t{VELMORA::FEEDBACK};
            mode |= (numberOf(chosen(id)) - 1) << feedbackShift;
        } else if (id == idYielding) {
            mode = (mode & ~yields) | numberOf(chosen(id));
        } else {
            bool isBit = false;
            for (const Bit& bit : bits) {
                if (bit.id != id) continue;
                isBit = true;
                mode = isChecked(id) ? mode | bit.flag : mode & ~bit.flag;
            }
            if (!isBit) return false;
        }
        context_.document.setText(FieldId::threadMode, number(mode));
        return true;
    }
};

}  // namespace

std::unique_ptr<Page> makeTransportPage(Context& context) {
    return std::make_unique<TransportPage>(context);
}

}  // namespace velmora_settings
