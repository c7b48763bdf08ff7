// Files by path. Both separators, slash and backslash, are accepted in every path; a directory is never opened as a
// file. Paths are UTF-8 where they are valid UTF-8, else in the system's code page.
#pragma once

#include "FileCalls.h"
#include "StopQuestion.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

namespace platform {

/// The path with the system's own separators.
std::string NativePath(const char* path);

/// Whether the whole path is longer than the system accepts. On Windows the limit is 259 characters, counted from the
/// drive; the system reports a longer path as missing. False on POSIX, where the system itself reports ENAMETOOLONG.
bool IsPathTooLong(const char* path);

/// As `fopen`. Null with `errno` set on failure: EISDIR for a directory, ENAMETOOLONG for a path that is too long (see
/// `IsPathTooLong`).
std::FILE* OpenFile(const char* path, const char* mode);

/// `fseek` from the start of the file, beyond 2 GB too. 0, or -1 with `errno` set.
int SeekFile(std::FILE* file, std::uint64_t offset);

/// Whether anything stands under the path (no access rights checked).
bool FileExists(const char* path);

/// The folder of a path, with the separator at its end; "" for a bare name.
std::string FolderOf(const std::string& path);

/// A file read from front to back without a buffer of its own.
class InputFile {
public:
    InputFile() = default;
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// False with `errno` set on failure.
    bool Open(const char* path);
    void Close();

    /// Asked while bytes are read, from this file and those that are opened later: for each MB, and at least every 20
    /// ms, though not while a call of the system waits for bytes. After a yes the file gives no more bytes.
    void SetStopQuestion(StopQuestion stop) { m_Stop.SetQuestion(std::move(stop)); }

    /// Bytes in a regular file when it was opened; 0 for what has no size (a pipe, a device).
    std::uint64_t GetSize() const { return m_State.size; }

    /// The same with what else tells that it is still the file that it was.
    const FileState& GetState() const { return m_State; }

    /// Reads up to `capacity` bytes and returns how many; fewer only at the end of the file and after an error, which
    /// leaves `errno` set. Being stopped is the error EINTR.
    std::size_t Read(void* bytes, std::size_t capacity);

    /// From there, counted from the file's beginning, the next bytes are read. False, and a read has failed, for what has
    /// no places (a pipe).
    bool Seek(std::uint64_t place);

    /// True once a read has failed.
    bool HasFailed() const { return m_Error != 0; }

    /// Why, as a value of `errno` (EINTR: stopped); 0 while no read has failed.
    int GetError() const { return m_Error; }

private:
    FileHandle m_Handle = -1;
    FileState m_State;
    int m_Error = 0;
    StopCheck m_Stop;
};

/// A file written from front to back. Small writes are collected. Once a write, flush or close has failed, every later
/// call fails with the same `errno`.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Creates the file, or empties the one that is there. False with `errno` set on failure.
    bool Open(const char* path);

    /// Creates a file that was not there: EEXIST where anything bears the name. No link is followed.
    bool OpenExclusively(const char* path);

    /// Writes behind the end of a file, made where it is not there, alone: EBUSY while somebody else does.
    bool OpenToAppend(const char* path);

    /// As `InputFile::SetStopQuestion`. After a yes, writing fails with EINTR.
    void SetStopQuestion(StopQuestion stop) { m_Stop.SetQuestion(std::move(stop)); }

    /// False with `errno` set when this or an earlier write failed.
    bool Write(const void* bytes, std::size_t count);

    /// Hands what was collected to the system, so that it outlasts the process. False with `errno` set.
    bool Flush();

    /// Waits until what was written is on the disk. False with `errno` set.
    bool Sync();

    /// False with `errno` set when anything since the opening has failed.
    bool Close();

private:
    bool Begin(const char* path, FileHandle (*open)(const char*));
    void WriteCollected();
    void WriteThrough(const void* bytes, std::size_t count);
    bool Succeeded() const;

    FileHandle m_Handle = -1;
    std::unique_ptr<unsigned char[]> m_pArea;
    std::size_t m_Used = 0;  // bytes in the area
    int m_Error = 0;         // `errno` of what failed first
    StopCheck m_Stop;
};

}  // namespace platform
