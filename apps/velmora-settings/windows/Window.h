// The window: four pages behind tabs, a line that says how things stand, OK and Cancel.
#pragma once

#include <windows.h>

#include <array>
#include <memory>

#include "apps/velmora-settings/windows/Page.h"
#include "apps/velmora-settings/windows/Tables.h"

namespace velmora_settings {

class Window {
public:
    Window(Document& document, Module& module, const std::string& folder);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    // Until it is closed; false where there was no window to be had.
    bool run();

private:
    static INT_PTR CALLBACK procedure(HWND window, UINT message, WPARAM wide, LPARAM longer);
    INT_PTR onMessage(UINT message, WPARAM wide, LPARAM longer);
    bool create();
    void createTabs();
    void place(UINT dpi);
    void placePages(UINT dpi);
    void onDpiChanged(UINT dpi, const RECT& suggested);
    void turnTo(int page, bool toFirstControl);
    bool takesKey(const MSG& message);
    bool turnsByKey(WPARAM key);
    bool endsByKey(const MSG& message);
    void showMessage();
    void onOk();
    void endWithoutTheSearch();
    void goTo(FieldId field);

    Context context_;
    Layout layout_;
    std::array<std::unique_ptr<Page>, pageCount> pages_;
    HWND window_ = nullptr, tabs_ = nullptr;
    HFONT font_ = nullptr;
    int page_ = pageTarget;
    bool isOpen_ = false;
};

}  // namespace velmora_settings
