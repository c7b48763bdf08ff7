// The options of every verb that works on the volume of a series.
#pragma once

#include <Korvane/Kit.h>

namespace CLI {
class App;
}

/// Adds SERIES, --series and --volume; `choice` must outlive the parsing.
void AddSeriesOptions(CLI::App& verb, korvane::SeriesChoice& choice);
