// Rows under headings, each column as wide as it needs. A column without any entry is left out.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace velmora_find {

class Table {
public:
    explicit Table(std::vector<std::string> headings) : headings_(std::move(headings)) {}
    // As many cells as there are headings; shown as they are, so escaped by the caller.
    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    void print(std::ostream& out) const;

private:
    std::vector<std::string> headings_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace velmora_find
