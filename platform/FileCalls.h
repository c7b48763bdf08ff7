// The system's own calls on open files and on names, as few as there can be: all else in this room that reads, writes or
// names files does it through these. Tests put implementations in their place that fail when they are told to.
//
// Paths are as in File.h. A call that fails leaves `errno` set.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// An open file; negative: none.
using FileHandle = int;

/// What changes when a file does.
struct FileState {
    std::uint64_t size = 0;    ///< of a regular file, 0 of what has none
    bool isRegular = false;    ///< no pipe, no device
    std::int64_t written = 0;  ///< when, in units of the system's own, from a beginning of its own

    bool operator==(const FileState&) const = default;
};

/// Opens a file to read from front to back; `state` is its own as it is opened. EISDIR for a directory.
FileHandle OpenToRead(const char* path, FileState& state);

/// Creates a file to write to, or empties the one that is there.
FileHandle OpenToWrite(const char* path);

/// Creates a file to write to that was not there: EEXIST where anything bears the name, a link that leads nowhere
/// included.
FileHandle OpenNew(const char* path);

/// Opens a file, made where it is not there, to write behind its end, for one holder alone: EBUSY where another process
/// or object has it open so. (Where the file system knows no locks, nobody is kept out.)
FileHandle OpenToAppend(const char* path);

/// Up to `count` bytes (below 2 GB), in one call of the system. The count; 0 at the end of the file; -1 on failure.
std::ptrdiff_t ReadSome(FileHandle file, void* bytes, std::size_t count);
std::ptrdiff_t WriteSome(FileHandle file, const void* bytes, std::size_t count);

/// From there, counted from the file's beginning, the next bytes are read.
bool SeekTo(FileHandle file, std::uint64_t place);

/// Waits until the bytes of the file are on the disk.
bool SyncFile(FileHandle file);

/// Waits until the names in the folder of a path are on the disk; nothing to do where the system writes them itself.
bool SyncFolderOf(const char* path);

bool CloseFile(FileHandle file);

/// Gives a file another name; a file that bears it already is replaced.
bool RenameOver(const char* from, const char* to);

/// Gives a file a name that nobody has: EEXIST where somebody does.
bool RenameNew(const char* from, const char* to);

bool RemoveFile(const char* path);

}  // namespace platform
