// One line of the result: what we need beside what would be enough.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace velmora_bench {

// One column of figures of a row, named: "p99", "stream worker", "" where there is but one.
struct Figure {
    std::string name;
    double ours = 0;
    double limit = 0;    // 0 with a ratio of 0: there is none
    double ratio = 0;    // of cost, so that more is worse whatever the unit
    double allowed = 0;  // largest ratio; 0: none is laid down
    std::vector<std::pair<std::string, double>> beside{};  // more to compare with, same unit

    bool hasLimit() const noexcept { return limit != 0 || ratio != 0 || allowed != 0; }
    // A limit of 0 allows nothing at all.
    bool isOver() const noexcept {
        return allowed != 0 && (limit == 0 ? ours > 0 : !(ratio <= allowed));
    }
};

struct Row {
    std::string group, name, unit;
    std::vector<Figure> figures;
    std::string how;  // the sentence below the table
};

}  // namespace velmora_bench
