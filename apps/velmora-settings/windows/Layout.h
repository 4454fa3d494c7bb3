// Tables of controls, and what places them: at 96 dots an inch in the table, at the monitor's on
// the screen.
#pragma once

#include <windows.h>

#include <span>
#include <string_view>
#include <vector>

namespace velmora_settings {

struct Control {
    enum class Kind {
        label,  // names the control behind it, by its mnemonic too
        hint,   // unit and range, or what else belongs to the control in front of it
        text,   // says something that changes; may take several lines
        edit,
        number,  // an edit that takes digits alone
        combo,
        comboEdit,
        check,
        button,
        defaultButton,
        list,
        progress,
        memo,  // several lines to read and copy
    };
    Kind kind;
    int id;
    std::string_view text;  // UTF-8, the mnemonic behind an ampersand
    int x, y, w, h;         // of the parent's inside
};

// The font that the system's own dialogs have at so many dots an inch. The caller deletes it.
HFONT makeDialogFont(UINT dpi);
UINT dpiOf(HWND window) noexcept;
int scaled(int value, UINT dpi) noexcept;

// The controls of one table in one window. The order of the table is that of the Tab key.
class Layout {
public:
    explicit Layout(std::span<const Control> controls) : controls_(controls) {}
    void create(HWND parent);
    void place(UINT dpi, HFONT font);
    // A name beside what the label says, for programs that read windows aloud: with unit and range.
    void nameForReaders() const;

private:
    std::span<const Control> controls_;
    std::vector<HWND> windows_;
};

}  // namespace velmora_settings
