// Every control of the window: the frame's, and each page's.
#pragma once

#include "apps/velmora-settings/windows/Ids.h"
#include "apps/velmora-settings/windows/Layout.h"

namespace velmora_settings {

inline constexpr int frameWidth = 640, frameHeight = 580;  // inside, at 96 dots an inch
inline constexpr int tabsX = 8, tabsY = 8, tabsW = 624,
                     tabsH = 496;  // of the tabs with their pages

std::span<const Control> frameControls() noexcept;
std::span<const Control> pageControls(int page) noexcept;
std::string_view pageTitle(int page) noexcept;

}  // namespace velmora_settings
