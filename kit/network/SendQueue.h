// The file in which a job of sending keeps what is to be sent and what was acknowledged.
#pragma once

#include "Peer.h"

#include "Dicom/Lib/network/StorageUser.h"
#include "platform/File.h"

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace korvane {

/// A journal: lines of JSON that are only ever added, so that whatever moment a run ends at, the next one knows how far
/// it had come. A line that was cut off is as if it were not there.
///
/// A file is the same as one in the list when path, SOP Instance UID, length and time of its last change are. Functions
/// may be called from several threads, but for `Enter`.
class SendQueue {
public:
    enum class Stage {
        Waiting,
        Begun,  ///< was on its way when a run ended: the peer may have it
        Stored
    };

    /// Opens the journal, or begins one. Throws `Error`: `WrongArgument` for a file that is none, or that of another
    /// peer; `Disk` when it cannot be read or written, or another run uses it.
    SendQueue(const std::string& path, const Peer& peer);

    /// Paths of the list that are not stored yet. Throws `Error` when a run ended before its list was whole.
    std::vector<std::string> GetUnstored() const;

    /// Puts files on the list, but for those that are there, and returns how far each has come, when the list is on the
    /// disk. They are numbered from 0 on. To be called once.
    std::vector<Stage> Enter(const std::vector<StorageFile>& files);

    /// Files are to be sent; returns when this and all that was noted before is on the disk.
    void NoteBegun(const std::vector<std::size_t>& files);
    /// A file was acknowledged.
    void NoteStored(std::size_t file);
    /// The peer has refused a file, and so does not have it.
    void NoteRefused(std::size_t file);
    /// Returns when all that was noted is on the disk.
    void Sync();

private:
    struct Entry {
        std::string path;
        Stage stage = Stage::Waiting;
    };

    void Begin(const Peer& peer);
    Stage EnterOne(const StorageFile& file);
    void Load(const Peer& peer);
    void Take(const std::string& line);
    void Note(std::size_t file, const char* word);
    void Write(const std::string& line);
    [[noreturn]] void Fail(const std::string& what) const;

    std::string m_Path;
    std::map<std::string, std::size_t> m_Known;  // entries by path, UID, length and time
    std::vector<Entry> m_Entries;                // by the number in the journal
    std::vector<std::size_t> m_Numbers;          // in the journal, of the files that were entered
    bool m_bListed = false;
    std::mutex m_Mutex;  // guards the file
    platform::OutputFile m_File;
};

}  // namespace korvane
