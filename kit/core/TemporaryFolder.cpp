#include "TemporaryFolder.h"

#include "Error.h"
#include "Paths.h"

#include "platform/Environment.h"
#include "platform/FileTree.h"

#include <cerrno>
#include <random>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr int kMostTries = 100;

std::string SystemFolder() {
    std::error_code error;
    const fs::path path = fs::temp_directory_path(error);
    if (error) throw Error(ErrorKind::Disk, "the system has no folder for temporary files: " + error.message());
    return TextFromPath(path);
}

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& under) : m_nMaker(platform::ProcessNumber()) {
    std::string parent = under.empty() ? SystemFolder() : under;
    parent = WithoutEndSlash(parent);
    std::random_device random;
    for (int i = 0; i < kMostTries; ++i) {
        m_Path = parent + "/korvane-" + std::to_string(random()) + std::to_string(random());
        if (platform::CreatePrivateFolder(m_Path.c_str())) return;
        if (errno != EEXIST) break;
    }
    throw Error(ErrorKind::Disk, "cannot make a folder in " + parent + ": " + SystemText(errno)).InFile(parent);
}

TemporaryFolder::~TemporaryFolder() {
    if (!IsMine()) return;
    while (m_nFiles > 0) DropLastFile();
    platform::RemoveFolder(m_Path.c_str());
}

void TemporaryFolder::DropLastFile() {
    RemoveFile(NameOf(m_nFiles));
    --m_nFiles;
}

void TemporaryFolder::RemoveEarly(const std::string& path) const noexcept {
    if (IsMine()) RemoveFile(path);
}

// A fork's copy is not: the files are still the parent's.
bool TemporaryFolder::IsMine() const {
    return m_nMaker == platform::ProcessNumber();
}

}  // namespace korvane
