// Which volume of which series under some paths, as a user says it.
#pragma once

#include "../core/Watcher.h"
#include "../dataset/InputOptions.h"

#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// As `Find`, `Found::Choose` and `LoadOptions::volume` take it, in one value for jobs that go all the way themselves.
struct SeriesChoice {
    std::vector<std::string> paths{};
    std::string series{};         ///< as `Found::Choose` takes it; "": the only one with pixels
    std::optional<int> number{};  ///< Series Number, instead of `series`
    int volume = 0;               ///< from 1; 0: not asked for
    unsigned jobs = 0;            ///< threads; 0: one for each core
    Watcher* watcher = nullptr;
    InputOptions input{};
};

}  // namespace korvane
