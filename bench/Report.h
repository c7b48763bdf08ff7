// The table and its JSON form.
#pragma once

#include "Rows.h"

#include <ostream>

/// Times are medians over the rounds; ratios are medians of the ratios within each round, where both were measured side
/// by side.
void PrintTable(std::ostream& out, const std::vector<Row>& rows);
void PrintJson(std::ostream& out, const std::vector<Row>& rows);
