#include "apps/velmora-find/Table.h"

#include <algorithm>

#include "apps/velmora-find/Printable.h"

namespace velmora_find {

void Table::print(std::ostream& out) const {
    std::vector<std::size_t> widths(headings_.size(), 0);
    for (const auto& row : rows_) {
        for (std::size_t i = 0; i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], columns(row[i]));
        }
    }
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if (widths[i] != 0) widths[i] = std::max(widths[i], columns(headings_[i]));
    }
    const auto line = [&](const std::vector<std::string>& cells) {
        std::string text;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (widths[i] == 0) continue;
            text += cells[i] + std::string(widths[i] - columns(cells[i]) + 2, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out << text << '\n';
    };
    line(headings_);
    for (const auto& row : rows_) line(row);
}

}  // namespace velmora_find
