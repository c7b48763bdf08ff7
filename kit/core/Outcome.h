// How a job ended, in words.
#pragma once

#include "Error.h"

#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// For programs that tell people what became of a job: `OutcomeOf(report)` makes it of the job's report. Texts may hold bytes
/// of files and of peers: escape them before printing (`Visible`).
///
///     const auto [lines, faults, failure] = korvane::OutcomeOf(korvane::Send(peer, {"study"}));
///     for (const std::string& line : lines) std::cout << korvane::Visible(line) << '\n';
///     if (failure) throw *failure;
struct Outcome {
    std::vector<std::string> lines{};   ///< what was done
    std::vector<std::string> faults{};  ///< what was not, one line for each file or the like
    std::optional<Error> failure{};     ///< in one sentence, where something was not done
};

}  // namespace korvane
