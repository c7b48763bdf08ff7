#include "SeriesOptions.h"

#include <CLI/CLI.hpp>

using namespace korvane;

void AddSeriesOptions(CLI::App& verb, PathOptions& paths, SeriesChoice& choice) {
    paths.AddTo(verb, "SERIES", "Folders or files that hold the series");
    CLI::Option* const series =
        verb.add_option("--series", choice.series, "UID of the series, or #ROW in the list, where several are found");
    verb.add_option_function<int>(
            "--series-number", [&choice](const int& number) { choice.number = number; },
            "Number that the scanner gave the series")
        ->excludes(series);
    verb.add_option("--volume", choice.volume, "Number of the volume, where the positions repeat (1)")
        ->check(CLI::Range(1, 1000000));
}

void AddPolicyOption(CLI::App& verb, Irregular& policy, const std::string& help) {
    verb.add_option_function<std::string>(
            "--irregular", [&policy](const std::string& word) { policy = PolicyWords().at(word); }, help)
        ->check(CLI::IsMember(PolicyWords()))
        ->default_str("keep");
}
