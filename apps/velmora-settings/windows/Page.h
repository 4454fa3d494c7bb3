// One page of the window. What stands on it is a table; fields that are one edit, one number or one
// check box are bound by their numbers, and a page adds what is more than that.
#pragma once

#include <windows.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "apps/velmora-settings/model/Document.h"
#include "apps/velmora-settings/model/TargetList.h"
#include "apps/velmora-settings/windows/Ids.h"
#include "apps/velmora-settings/windows/Layout.h"
#include "apps/velmora-settings/windows/Module.h"
#include "apps/velmora-settings/windows/Work.h"

namespace velmora_settings {

// What the pages share.
struct Context {
    Document& document;
    Module& module;
    std::string folder;  // of this program, with its backslash
    TargetList targets{};
    HWND frame = nullptr;
    std::function<void()> onChanged{};  // a field says something else
    Searcher searcher{};                // the last two wait for their threads: first to go
    Doctor doctor{};
};

class Page {
public:
    Page(Context& context, int number);
    virtual ~Page() = default;
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    HWND window() const noexcept { return window_; }
    void create(HWND frame);
    void place(UINT dpi, HFONT font);
    void show(bool isShown);

    void fill();               // every control, from the document
    virtual void refresh() {}  // what is worked out from them, and which are enabled
    virtual void onPlaced(UINT /*dpi*/) {}
    virtual void onShown() {}
    virtual void onTimer() {}
    virtual void onFound() {}
    virtual void onDoctorDone() {}
    virtual void onNotify(const NMHDR&) {}

protected:
    // What a page has besides its bound fields.
    virtual void prepare() {}
    virtual void fillRest() {}
    // `code` says how it was changed, as CBN_SELCHANGE. True: it was one of these.
    virtual bool takeRest(int /*id*/, int /*code*/) { return false; }
    virtual bool press(int /*id*/) { return false; }  // a button; true: it was one of these

    HWND control(int id) const noexcept { return GetDlgItem(window_, id); }
    void show(int id, std::string_view text) const;
    void enable(int id, bool isEnabled) const noexcept;
    bool isShown() const noexcept { return IsWindowVisible(window_) != 0; }
    void setChecked(int id, bool isChecked) const noexcept;
    bool isChecked(int id) const noexcept;

    // A combo whose lines stand for texts.
    using Choices = std::vector<std::pair<std::string, std::string>>;  // shown, meant
    void setChoices(int id, const Choices& choices, std::string_view meant);
    std::string chosen(int id) const;

    Context& context_;

private:
    static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wide, LPARAM longer);
    void onCommand(int id, int code);
    bool takeField(int id);

    const int number_;
    Layout layout_;
    HWND window_ = nullptr;
    bool isFilling_ = false;  // what is shown is no change of the user's
    std::vector<std::pair<int, Choices>> choices_;
};

std::unique_ptr<Page> makeTargetPage(Context& context);
std::unique_ptr<Page> makeAudioPage(Context& context);
std::unique_ptr<Page> makeTransportPage(Context& context);
std::unique_ptr<Page> makeDiagnosticsPage(Context& context);

// One sentence in a box of its own.
void tell(HWND owner, const std::string& sentence, bool isFault);

}  // namespace velmora_settings
