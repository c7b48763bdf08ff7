// The files that an exporter writes, each of which is whole under its name or not there.
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

/// The files of one export. The first failure of their writer is kept here, because exporters return true even when
/// writing has failed. Local files are written as ".name.RANDOM.part" and get their names when all of them are whole.
/// Files on a server are written under their names, and are emptied when they did not become whole.
class ExportFiles {
public:
    explicit ExportFiles(Destination destination, const Watch& watch = {});
    ~ExportFiles();
    ExportFiles(const ExportFiles&) = delete;
    ExportFiles& operator=(const ExportFiles&) = delete;

    // Settings, to be made before `MakeWriter`:
    void SetDryRun() { m_bDryRun = true; }        ///< nothing is written, and no server is connected to
    void SetChecksums() { m_bChecksums = true; }  ///< compute the CRC-32 of each file
    void SetMakeFolders() { m_bFolders = true; }  ///< make folders that are missing
    void SetKeepExisting() { m_bKeep = true; }    ///< fail instead of replacing a local file
    void Reserve(const std::string& path);        ///< a local path that none of the files may take

    /// A writer for the exporter, which owns it; this object must outlive it. An FTP destination is logged in to.
    /// Throws `Error`.
    std::unique_ptr<CFileWriter> MakeWriter();

    /// The first failure; "" when there was none.
    const std::string& GetFailure() const { return m_Failure; }
    /// Throws the first failure as an `Error`; one of kind `Stopped` when the job was stopped.
    [[noreturn]] void ThrowFailure() const;
    const std::vector<ExportOutput>& GetOutputs() const { return m_Outputs; }
    std::vector<std::string> GetNames() const;

    /// Gives local files their names: all of them, or none and an `Error` is thrown.
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
        m_Unfinished;  // the file of each output; null where it has its name already
    bool m_bDryRun = false;
    bool m_bChecksums = false;
    bool m_bKeep = false;
    bool m_bFolders = false;
};

/// Empties the files of which a server got only a part. The result is a message that says whether that worked.
std::string EmptyRemoteFiles(CFileWriter& writer, const ExportFiles& files);

}  // namespace korvane
