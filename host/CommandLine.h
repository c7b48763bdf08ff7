// What is wrong with a command line, said before the parser complains about what is missing.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

/// The sentence about the first verb or option that does not exist, with the nearest one that does, and "" when there is
/// none. `arguments`: those of `main`, the program's name first.
std::string FindUnknown(const CLI::App& program, const std::vector<std::string>& arguments);

/// The verb that the arguments name; null where they name none that exists.
const CLI::App* FindVerb(const CLI::App& program, const std::vector<std::string>& arguments);
