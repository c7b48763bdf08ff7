// The options of every verb that works on the volume of a series.
#pragma once

#include "PathOptions.h"
#include <Korvane/Kit.h>

namespace CLI {
class App;
}

/// Adds SERIES, --files-from, --series, --series-number and --volume; both must outlive the parsing.
void AddSeriesOptions(CLI::App& verb, PathOptions& paths, korvane::SeriesChoice& choice);

/// Adds --irregular.
void AddPolicyOption(CLI::App& verb, korvane::Irregular& policy, const std::string& help);
