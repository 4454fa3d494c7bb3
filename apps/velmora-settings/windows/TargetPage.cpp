// The page Target: who answers, who is used always, and how is searched.
#include <windows.h>

#include <commctrl.h>

#include <algorithm>

#include "apps/velmora-settings/windows/Page.h"
#include "apps/velmora-settings/windows/Text.h"
#include "base/Printable.h"
#include "src/Network/LocalInterfaces.h"

namespace velmora_settings {
namespace {

constexpr int idInterface = fieldControl(FieldId::networkInterface);

struct Column {
    const wchar_t* title;
    int width;  // at 96 dots an inch
};
constexpr Column columns[] = {
    {L"Name", 190}, {L"Address", 170}, {L"Interface", 62},
    {L"Sink", 42},  {L"Version", 54},  {L"State", 70},
};

class TargetPage final : public Page {
public:
    explicit TargetPage(Context& context) : Page(context, pageTarget) {}

    void refresh() override {
        const TargetRow* const row = selected();
        enable(idUseAlways, row != nullptr && !isUsedAlways(context_.document, *row));
        enable(idUseAny, !context_.document.text(FieldId::targetAddress).empty());
        enable(idSearchAgain, context_.module.finder() != nullptr);
        showState();
        showUse();
    }

    void onPlaced(UINT dpi) override {
        for (std::size_t i = 0; i < std::size(columns); ++i) {
            SendMessageW(control(idTargets), LVM_SETCOLUMNWIDTH, i,
                         MAKELPARAM(scaled(columns[i].width, dpi), 0));
        }
    }
    void onShown() override { search(); }
    void onTimer() override {
        if (isShown()) search();
    }

    void onFound() override {
        VELMORA::FinderMap found;
        if (context_.searcher.take(found)) {
            context_.targets.onFound(found);
        } else {
            context_.targets.onFailed();
        }
        showSearching(false);
        showRows();
        refresh();
    }

    void onNotify(const NMHDR& what) override {
        if (what.idFrom != idTargets) return;
        if (what.code == LVN_ITEMCHANGED && !isShowingRows_) {
            rememberSelection();
            refresh();
        }
        if (what.code == NM_DBLCLK) press(idUseAlways);
    }

private:
    void prepare() override {
        showSearching(false);
        const HWND list = control(idTargets);
        SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_LABELTIP);
        for (int i = 0; i < static_cast<int>(std::size(columns)); ++i) {
            std::wstring title = columns[i].title;
            LVCOLUMNW column{};
            column.mask = LVCF_TEXT | LVCF_SUBITEM;
            column.pszText = title.data();
            column.iSubItem = i;
            SendMessageW(list, LVM_INSERTCOLUMNW, static_cast<WPARAM>(i),
                         reinterpret_cast<LPARAM>(&column));
        }
    }

    void fillRest() override {
        const std::string& number = context_.document.text(FieldId::networkInterface);
        Choices choices = {{"all of them", "0"}};
        ZENNO::LocalInterfaceMap local;
        ZENNO::getMyLinkLocalAddresV6(local, /*keepLoopback=*/false);
        for (const auto& [address, names] : local) {
            const std::string index = std::to_string(address.scope);
            if (choices.back().second == index) continue;  // a second address of the same
            choices.push_back({index + ": " + ZENNO::printable(names.name), index});
        }
        const auto isIt = [&](const auto& choice) { return choice.second == number; };
        if (std::none_of(choices.begin(), choices.end(), isIt)) {
            choices.push_back({number + ": not here now", number});
        }
        setChoices(idInterface, choices, number);
    }

    bool takeRest(int id, int /*code*/) override {
        if (id != idInterface) return false;
        context_.document.setText(FieldId::networkInterface, chosen(id));
        return true;
    }

    bool press(int id) override {
        if (id == idSearchAgain) {
            context_.targets.forgetGone();
            showRows();
            search();
        } else if (id == idUseAlways) {
            if (const TargetRow* const row = selected()) useAlways(context_.document, *row);
            changed();
        } else if (id == idUseAny) {
            useAny(context_.document);
            changed();
        } else {
            return false;
        }
        return true;
    }

    void changed() {
        fill();
        context_.onChanged();
    }

    void search() {
        VELMORA::asio_velmora_find_call* const finder = context_.module.finder();
        if (finder == nullptr || context_.searcher.isRunning()) return;
        const SearchQuestion question = searchQuestion(context_.document);
        if (context_.targets.onSearch(question)) showRows();
        context_.searcher.start(context_.frame, *finder, question.addresses,
                                question.interfaceIndex);
        showSearching(true);
        refresh();
    }

    void showSearching(bool isSearching) const {
        SendMessageW(control(idSearching), PBM_SETMARQUEE, isSearching, 0);
        for (const int id : {static_cast<int>(idSearching), static_cast<int>(idSearchingLabel)}) {
            ShowWindow(control(id), isSearching ? SW_SHOWNA : SW_HIDE);
        }
    }

    void showState() {
        show(idTargetState, context_.module.finder() != nullptr ? context_.targets.statusText()
                                                                : context_.module.about());
    }

    const TargetRow* selected() const {
        const LRESULT line = SendMessageW(control(idTargets), LVM_GETNEXTITEM,
                                          static_cast<WPARAM>(-1), LVNI_SELECTED);
        const auto& rows = context_.targets.rows();
        const auto number = static_cast<std::size_t>(line);
        return line >= 0 && number < rows.size() ? &rows[number] : nullptr;
    }

    void setCell(int line, int column, const std::string& text) const {
        std::wstring shown = wide(text);
        LVITEMW item{};
        item.iSubItem = column;
        item.pszText = shown.data();
        SendMessageW(control(idTargets), LVM_SETITEMTEXTW, static_cast<WPARAM>(line),
                     reinterpret_cast<LPARAM>(&item));
    }

    // Lines are kept and said anew, so that a selection and the place in a long list stay; it is
    // the target that stays selected, be its line another one by now.
    void showRows() {
        const HWND list = control(idTargets);
        const auto& rows = context_.targets.rows();
        isShowingRows_ = true;
        const auto shown = static_cast<std::size_t>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
        for (std::size_t i = shown; i > rows.size(); --i) {
            SendMessageW(list, LVM_DELETEITEM, i - 1, 0);
        }
        for (std::size_t i = 0; i < rows.size(); ++i) {
            showRow(static_cast<int>(i), rows[i], /*isNew=*/i >= shown);
            if (hasSelection_ && rows[i].key == selectedKey_) select(static_cast<int>(i));
        }
        isShowingRows_ = false;
    }

    void select(int line) const {
        LVITEMW item{};
        item.stateMask = item.state = LVIS_SELECTED | LVIS_FOCUSED;
        SendMessageW(control(idTargets), LVM_SETITEMSTATE, static_cast<WPARAM>(line),
                     reinterpret_cast<LPARAM>(&item));
    }

    void rememberSelection() {
        const TargetRow* const row = selected();
        hasSelection_ = row != nullptr;
        if (row != nullptr) selectedKey_ = row->key;
    }

    void showRow(int line, const TargetRow& row, bool isNew) const {
        if (isNew) {
            LVITEMW item{};
            item.iItem = line;
            SendMessageW(control(idTargets), LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
        }
        setCell(line, 0, ZENNO::printable(row.record.targetName));
        setCell(line, 1, row.addressText());
        setCell(line, 2, row.interfaceText());
        setCell(line, 3, std::to_string(row.record.sinkNo));
        setCell(line, 4, std::to_string(row.record.version));
    }

    void showUse() const {
        int line = 0;
        const auto shown = SendMessageW(control(idTargets), LVM_GETITEMCOUNT, 0, 0);
        for (const TargetRow& row : context_.targets.rows()) {
            if (line >= shown) return;  // not shown yet
            const bool isUsed = isUsedAlways(context_.document, row);
            setCell(line++, 5, !row.isHere ? "gone" : isUsed ? "used always" : "here");
        }
    }

    bool isShowingRows_ = false;  // what changes then is no choice of the user's
    bool hasSelection_ = false;
    ZENNO::IPAddress selectedKey_{};  // of the target that is selected
};

}  // namespace

std::unique_ptr<Page> makeTargetPage(Context& context) {
    return std::make_unique<TargetPage>(context);
}

}  // namespace velmora_settings
