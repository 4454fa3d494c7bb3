#include "bench/Report.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace velmora_bench {
namespace {

constexpr int nameWidth = 36;

// Four digits at least, whatever the size.
std::string number(double value) {
    char text[32];
    const double size = std::fabs(value);
    const int decimals = size >= 1000 ? 0 : size >= 100 ? 1 : size >= 10 ? 2 : 3;
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string orDash(bool there, double value) {
    return there ? number(value) : "-";
}

std::string besideText(const Figure& figure) {
    std::string text;
    for (const auto& [name, value] : figure.beside) {
        text += (text.empty() ? "" : "  ") + name + " " + number(value);
    }
    return text;
}

void printRow(const Row& row) {
    std::string name = row.name;
    for (const Figure& f : row.figures) {
        std::printf("  %-*s %-18s %10s %-5s %10s %8s %8s %-5s %s\n", nameWidth, name.c_str(),
                    f.name.c_str(), number(f.ours).c_str(), row.unit.c_str(),
                    orDash(f.hasLimit(), f.limit).c_str(), orDash(f.ratio != 0, f.ratio).c_str(),
                    orDash(f.allowed != 0, f.allowed).c_str(), f.isOver() ? "over" : "",
                    besideText(f).c_str());
        name.clear();
    }
    if (row.figures.empty()) std::printf("  %-*s (see below)\n", nameWidth, row.name.c_str());
}

}  // namespace

void printTable(const std::vector<Row>& rows) {
    std::printf("  %-*s %-18s %10s %-5s %10s %8s %8s\n", nameWidth, "", "", "ours", "", "limit",
                "ratio", "allowed");
    std::string group;
    for (const Row& row : rows) {
        if (row.group != group) std::printf("%s\n", row.group.c_str());
        group = row.group;
        printRow(row);
    }
}

void printHow(const std::vector<Row>& rows) {
    std::printf("\nHow each row is measured:\n");
    for (const Row& row : rows) {
        std::printf("\n%s, %s: %s.\n", row.group.c_str(), row.name.c_str(), row.how.c_str());
    }
}

void writeJson(const std::vector<Row>& rows, int rounds, const std::string& file) {
    nlohmann::json all = nlohmann::json::array();
    for (const Row& row : rows) {
        nlohmann::json figures = nlohmann::json::array();
        for (const Figure& f : row.figures) {
            nlohmann::json beside = nlohmann::json::object();
            for (const auto& [name, value] : f.beside) beside[name] = value;
            figures.push_back({{"name", f.name},
                               {"ours", f.ours},
                               {"limit", f.limit},
                               {"ratio", f.ratio},
                               {"allowed", f.allowed},
                               {"over", f.isOver()},
                               {"beside", beside}});
        }
        all.push_back({{"group", row.group},
                       {"name", row.name},
                       {"unit", row.unit},
                       {"how", row.how},
                       {"figures", figures}});
    }
    std::ofstream out(file);
    out << nlohmann::json{{"rounds", rounds}, {"rows", all}}.dump(2) << '\n';
    if (!out.flush()) throw std::runtime_error(file + " cannot be written");
}

std::vector<Row> readJson(const std::string& file) {
    std::ifstream in(file);
    if (!in) throw std::runtime_error(file + " cannot be read");
    std::vector<Row> rows;
    try {
        const nlohmann::json whole = nlohmann::json::parse(in);
        for (const auto& row : whole.at("rows")) {
            rows.push_back({row.at("group"), row.at("name"), row.at("unit"), {}, row.at("how")});
            for (const auto& f : row.at("figures")) {
                rows.back().figures.push_back(
                    {f.at("name"), f.at("ours"), f.at("limit"), f.at("ratio"), f.at("allowed")});
            }
        }
    } catch (const nlohmann::json::exception& e) {
        throw std::runtime_error(file + " holds no rows: " + e.what());
    }
    return rows;
}

void printComparison(const std::vector<Row>& before, const std::vector<Row>& after) {
    std::printf("\n  %-*s %-18s %10s %10s %8s   %8s %8s\n", nameWidth, "before and after", "",
                "before", "after", "change", "ratio", "now");
    for (const Row& now : after) {
        for (const Row& then : before) {
            if (then.group != now.group || then.name != now.name) continue;
            for (const Figure& f : now.figures) {
                for (const Figure& old : then.figures) {
                    if (old.name != f.name) continue;
                    const double change = old.ours != 0 ? (f.ours / old.ours - 1) * 100 : 0;
                    std::printf("  %-*s %-18s %10s %10s %+7.1f%%   %8s %8s\n", nameWidth,
                                (now.group + ", " + now.name).c_str(), f.name.c_str(),
                                number(old.ours).c_str(), number(f.ours).c_str(), change,
                                orDash(old.ratio != 0, old.ratio).c_str(),
                                orDash(f.ratio != 0, f.ratio).c_str());
                }
            }
        }
    }
}

}  // namespace velmora_bench
