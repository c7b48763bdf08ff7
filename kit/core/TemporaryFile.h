// One of many files that must lie on the disk for a while.
#pragma once

#include "TemporaryFolder.h"

#include <string>

namespace korvane {

/// A name in a folder, and the file that somebody makes there. It goes with the object unless it was moved elsewhere.
class TemporaryFile {
public:
    /// The folder must outlive the object.
    explicit TemporaryFile(TemporaryFolder& folder) : m_Folder(folder), m_Path(folder.NewFile()) {}
    ~TemporaryFile() { m_Folder.RemoveEarly(m_Path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& GetPath() const { return m_Path; }

private:
    const TemporaryFolder& m_Folder;
    std::string m_Path;
};

}  // namespace korvane
