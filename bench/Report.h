// Rows as a table, as JSON, and beside those of an earlier run.
#pragma once

#include <string>
#include <vector>

#include "bench/Row.h"

namespace velmora_bench {

void printTable(const std::vector<Row>& rows);
void printHow(const std::vector<Row>& rows);
void writeJson(const std::vector<Row>& rows, int rounds, const std::string& file);
std::vector<Row> readJson(const std::string& file);  // throws std::runtime_error
// A column that stands on one side alone is left out.
void printComparison(const std::vector<Row>& before, const std::vector<Row>& after);

}  // namespace velmora_bench
