// Files that are whole or not there.
#pragma once

#include "File.h"

#include <string>

namespace platform {

/// Writes the rest of `input`, from where it stands, in steps of at most 1 MB. False, with `errno` set, when reading or writing
/// failed.
bool WriteRest(OutputFile& output, InputFile& input);

/// Writes a file under a name that nobody has, in the folder where it shall stand, and gives it its own name when it is
/// whole. Whoever looks meanwhile, or after a crash, finds what was there before.
///
///     ReplacingFile file;
///     done = file.Open(path) && file.Write(bytes, count) && file.Commit();
///
/// Until then it is called ".NAME.RANDOM.part". It is created exclusively and without following links, so it can
/// neither overwrite somebody else's file nor be led elsewhere by a link. A link under the final name is replaced, not
/// followed.
///
/// What fails leaves `errno` set.
class ReplacingFile {
public:
    /// What the commit does where a file has the final name already: replaces it, or fails with EEXIST.
    enum class Existing { Replace, Refuse };

    ReplacingFile() = default;
    ~ReplacingFile() { Discard(); }
    ReplacingFile(const ReplacingFile&) = delete;
    ReplacingFile& operator=(const ReplacingFile&) = delete;

    /// Creates the unfinished file; one that was open is discarded.
    bool Open(const std::string& path);

    /// The same for a caller that writes the file by its name: it is created empty and closed, to be opened as
    /// `GetUnfinished()`.
    bool Reserve(const std::string& path) { return Open(path) && Close(); }

    /// Whether the commit waits until bytes and name are on the disk: for files whose safe arrival is confirmed to a
    /// sender that may then delete its own. To be set before `Close`.
    void SetDurable(bool durable) { m_bDurable = durable; }

    void SetStopQuestion(StopQuestion stop) { m_File.SetStopQuestion(std::move(stop)); }

    bool Write(const void* bytes, std::size_t count) { return m_File.Write(bytes, count); }

    /// As `WriteRest`.
    bool WriteAll(InputFile& input) { return WriteRest(m_File, input); }

    /// Ends the writing before the commit, so that the caller can look at the file before it gets its name.
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
