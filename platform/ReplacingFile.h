// Files that are whole or not there.
#pragma once

#include "File.h"

#include <string>

namespace platform {

/// Writes a file under a name that nobody has, in the folder where it shall stand, and gives it its own name when it is
/// whole. Whoever looks meanwhile, or after a crash, finds what was there before.
///
///     ReplacingFile file;
///     done = file.Open(path) && file.Write(bytes, count) && file.Commit();
///
/// Until then it is called ".NAME.RANDOM.part". It is created exclusively, so it never is somebody else's file, nor where
/// a link leads that somebody else has laid. A link of the final name is replaced, not followed.
///
/// What fails leaves `errno` set.
class ReplacingFile {
public:
    /// What becomes of a file that has the name when this one is whole: gone, or the commit fails with EEXIST.
    enum class Existing { Replace, Refuse };

    ReplacingFile() = default;
    ~ReplacingFile() { Discard(); }
    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    /// Creates the unfinished file; one that was open is discarded.
    bool Open(const std::string& path);

    /// The same for who writes by name: the file is there, empty and closed, and waits to be opened as `GetUnfinished()`.
    bool Reserve(const std::string& path) { return Open(path) && Close(); }

    /// The commit waits until bytes and name are on the disk: for files that are vouched for, as to a sender that will
    /// delete its own. To be set before `Close`.
    void SetDurable(bool durable) { m_bDurable = durable; }

    void SetStopQuestion(StopQuestion stop) { m_File.SetStopQuestion(std::move(stop)); }

    bool Write(const void* bytes, std::size_t count) { return m_File.Write(bytes, count); }

    /// All that the file has from where it stands, in steps of at most 1 MB. False, `errno` set, when reading or writing failed.
    bool WriteAll(InputFile& input);

    /// Ends the writing, for who wants to look at the file before it gets its name.
    bool Close();

    /// Closes, and gives the file its name. After a failure it is still there, to be committed otherwise or discarded.
    bool Commit(Existing existing = Existing::Replace) { return CommitAs(m_Path, existing); }

    /// The same under another name in the same folder.
    bool CommitAs(const std::string& path, Existing existing);

    /// Removes a file that was not committed. `errno` stays as it was.
    void Discard() noexcept;

    /// The path under which the file is written; "" where none is.
    const std::string& GetUnfinished() const { return m_Unfinished; }

private:
    OutputFile m_File;
    std::string m_Path;
    std::string m_Unfinished;
    bool m_bDurable = false;
};

}  // namespace platform
