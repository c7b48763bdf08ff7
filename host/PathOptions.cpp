#include "PathOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>

using namespace korvane;

void PathOptions::AddTo(CLI::App& verb, const std::string& name, const std::string& help) {
    m_Name = name;
    verb.add_option(name, m_Paths, help + ", a DICOMDIR, zip or tar archives, - for standard input");
    verb.add_option("--files-from", m_FilesFrom, "A file with more of these, one in a line; - for standard input");
}

void PathOptions::Fill(std::vector<std::string>& paths, InputOptions& input) {
    paths = m_Paths;
    const bool reads = std::find(paths.begin(), paths.end(), "-") != paths.end();
    if (reads && m_FilesFrom == "-") {
        throw Error(ErrorKind::WrongArgument, "standard input cannot be a series and a list of files at once");
    }
    if (paths.empty() && m_FilesFrom.empty()) {
        throw Error(ErrorKind::WrongArgument, m_Name + " is required, or --files-from");
    }
    if (reads || m_FilesFrom == "-") m_pInput = std::make_unique<platform::StandardInput>();
    if (reads) input.stream = m_pInput.get();
    if (m_FilesFrom.empty()) return;
    const std::vector<std::string> listed = m_FilesFrom == "-" ? ReadPathList(*m_pInput) : ReadPathList(m_FilesFrom);
    paths.insert(paths.end(), listed.begin(), listed.end());
    if (paths.empty()) throw Error(ErrorKind::NotFound, m_FilesFrom + ": a list without paths").InFile(m_FilesFrom);
}
