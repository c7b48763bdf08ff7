// Prints the results of bench_speed: a table for people, and the same as JSON.
#pragma once

#include "Rows.h"

#include <ostream>

/// Times are medians over the rounds; ratios are medians of the ratios within each round, where both were measured side
/// by side.
void PrintTable(std::ostream& out, const std::vector<Row>& rows);
void PrintJson(std::ostream& out, const std::vector<Row>& rows);
