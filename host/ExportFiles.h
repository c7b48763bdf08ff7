// The files that an exporter writes: nothing that is not whole ends up under its name.
#pragma once

#include "Destination.h"

#include <memory>
#include <string>
#include <vector>

class CFileWriter;

/// Remembers what the writer met, since an exporter's `true` does not tell. Local files are written as "name.part" and
/// get their names when all are whole; what a server was sent under its name is emptied when it did not become whole.
class ExportFiles {
public:
    explicit ExportFiles(Destination destination) : m_Destination(std::move(destination)) {}
    ~ExportFiles() { Discard(); }
    ExportFiles(const ExportFiles&) = delete;
    ExportFiles& operator=(const ExportFiles&) = delete;

    /// A writer for the exporter, which owns it; this object must outlive it. An FTP destination is logged in to.
    /// Throws `HostError`.
    std::unique_ptr<CFileWriter> MakeWriter();

    /// What went wrong first; "" when nothing did.
    const std::string& GetFailure() const { return m_Failure; }
    const std::vector<std::string>& GetNames() const { return m_Names; }

    /// Gives local files their names. Throws `HostError`; none has its name then.
    void Commit();
    /// Removes local files that have no name yet.
    void Discard() noexcept;

    // For the writers:
    std::string Begin(const std::string& path);  ///< the path to write to
    void Fail(const std::string& what, const std::string& reason);

private:
    Destination m_Destination;
    std::string m_Failure;
    std::vector<std::string> m_Names;
    bool m_bCommitted = false;
};

/// Empties the files that a server got in part. The message says whether that worked.
std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files);
