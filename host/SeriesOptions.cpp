#include "SeriesOptions.h"

#include <CLI/CLI.hpp>

using namespace korvane;

void AddSeriesOptions(CLI::App& verb, SeriesChoice& choice) {
    verb.add_option("SERIES", choice.paths, "Folders or files that hold the series")->required();
    verb.add_option("--series", choice.series, "UID or number of the series, where several are found");
    verb.add_option("--volume", choice.volume, "Number of the volume, where the positions repeat (1)")
        ->check(CLI::Range(1, 1000000));
}
