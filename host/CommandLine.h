// Finds verbs and options that do not exist, before the parser complains about what is missing.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

/// A sentence about the first verb or option that does not exist, with the nearest one that does; "" when all of them
/// exist. `arguments` are those of `main`, the program's name first.
std::string FindUnknown(const CLI::App& program, const std::vector<std::string>& arguments);

/// The verb that the arguments name, or a part of it ("batch plan"); null where they name none that exists.
const CLI::App* FindVerb(const CLI::App& program, const std::vector<std::string>& arguments);

/// "batch plan".
std::string FullName(const CLI::App& verb);

/// The arguments with an empty PORT behind a HOST that is an http or https address, for the verbs that take one: such an
/// address has its port in itself.
std::vector<std::string> WithPorts(const CLI::App& program, std::vector<std::string> arguments);
