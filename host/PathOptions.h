// The options by which a verb takes the paths of series.
#pragma once

#include "terminal/StandardStreams.h"
#include <Korvane/Kit.h>

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// Positional paths, of which "-" is standard input, and --files-from. It must outlive the parsing, and the reading.
class PathOptions {
public:
    void AddTo(CLI::App& verb, const std::string& name, const std::string& help);

    /// Puts all paths, those that a list names behind the others, and what "-" stands for where the Kit looks for them.
    /// Throws `korvane::Error` of kind `WrongArgument` where there is none.
    void Fill(std::vector<std::string>& paths, korvane::InputOptions& input);

private:
    std::string m_Name;
    std::vector<std::string> m_Paths;
    std::string m_FilesFrom;
    std::unique_ptr<platform::StandardInput> m_pInput;
};
