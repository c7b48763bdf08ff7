// The files that an exporter writes: nothing that is not whole ends up under its name.
#pragma once

#include "Destination.h"
#include "ExportOutput.h"
#include "Watch.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

class CFileWriter;

namespace platform {
class ReplacingFile;
}

namespace korvane {

/// Remembers what the writer met, since an exporter's `true` does not tell. Local files are written as ".name.RANDOM.part" and
/// get their names when all are whole; what a server was sent under its name is emptied when it did not become whole.
class ExportFiles {
public:
    explicit ExportFiles(Destination destination, const Watch& watch = {});
    ~ExportFiles();
    ExportFiles(const ExportFiles&) = delete;
    ExportFiles& operator=(const ExportFiles&) = delete;

    // Settings, to be made before `MakeWriter`:
    void SetDryRun() { m_bDryRun = true; }        ///< nothing is written, no server is asked
    void SetChecksums() { m_bChecksums = true; }  ///< of all that is written
    void SetMakeFolders() { m_bFolders = true; }  ///< that are missing
    void SetKeepExisting() { m_bKeep = true; }    ///< a local file of the name is not replaced: a failure
    void Reserve(const std::string& path);        ///< a local file that shall be something else

    /// A writer for the exporter, which owns it; this object must outlive it. An FTP destination is logged in to.
    /// Throws `Error`.
    std::unique_ptr<CFileWriter> MakeWriter();

    /// What went wrong first; "" when nothing did.
    const std::string& GetFailure() const { return m_Failure; }
    /// That, as an `Error`; one of kind `Stopped` when the job was to end.
    [[noreturn]] void ThrowFailure() const;
    const std::vector<ExportOutput>& GetOutputs() const { return m_Outputs; }
    std::vector<std::string> GetNames() const;

    /// Gives local files their names. Throws `Error`; none has its name then.
    void Commit();
    /// Removes local files that have no name yet.
    void Discard() noexcept;

    // For the writers:
    bool IsStopped() const { return m_Watch.IsStopped(); }
    std::string Begin(const std::string& path);  ///< the path to write to; "" after a failure
    void Abandon(const std::string& reason);     ///< the file begun last could not be opened
    void Count(const void* bytes, std::size_t count);
    void Fail(const std::string& what, const std::string& reason);

private:
    bool MakeFolderOf(const std::string& path);
    std::string NameOf(const std::string& path) const;
    std::string WithoutPassword(const std::string& reply) const;

    Destination m_Destination;
    Watch m_Watch;
    std::filesystem::path m_Reserved;
    std::string m_Failure;
    std::vector<ExportOutput> m_Outputs;
    std::vector<std::unique_ptr<platform::ReplacingFile>>
        m_Unfinished;  // of each output; null: it has its name already
    bool m_bDryRun = false;
    bool m_bChecksums = false;
    bool m_bKeep = false;
    bool m_bFolders = false;
};

/// Empties the files that a server got in part. The message says whether that worked.
std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files);

}  // namespace korvane
