#include "platform/FileCalls.h"

#include "Faults.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string_view>

namespace platform {

FileHandle SystemOpenToRead(const char* path, FileState& state);
FileHandle SystemOpenToWrite(const char* path);
FileHandle SystemOpenNew(const char* path);
FileHandle SystemOpenToAppend(const char* path);
std::ptrdiff_t SystemReadSome(FileHandle file, void* bytes, std::size_t count);
bool SystemSeekTo(FileHandle file, std::uint64_t place);
std::ptrdiff_t SystemWriteSome(FileHandle file, const void* bytes, std::size_t count);
bool SystemSyncFile(FileHandle file);
bool SystemSyncFolderOf(const char* path);
bool SystemCloseFile(FileHandle file);
bool SystemRenameOver(const char* from, const char* to);
bool SystemRenameNew(const char* from, const char* to);
bool SystemRemoveFile(const char* path);

namespace {

struct OpenFileNote {
    bool concerned;
    bool written;
};

std::mutex s_lock;
Faults* s_faults = nullptr;
std::map<FileHandle, OpenFileNote> s_open;

bool IsConcerned(std::string_view path) {
    return s_faults != nullptr && path.find(s_faults->only) != std::string_view::npos;
}

FileHandle Note(FileHandle file, const char* path, bool written) {
    const std::scoped_lock held(s_lock);
    if (file >= 0) s_open[file] = {IsConcerned(path), written};
    return file;
}

bool IsTime(int& calls, int failing) {
    ++calls;
    return failing != Faults::kNever && calls >= failing;
}

// Whether a call on an open file has to fail with `error`.
bool Fails(FileHandle file, int Faults::*calls, int Faults::*failing, int error) {
    const std::scoped_lock held(s_lock);
    const auto found = s_open.find(file);
    if (s_faults == nullptr || found == s_open.end() || !found->second.concerned) return false;
    if (!IsTime(s_faults->*calls, s_faults->*failing)) return false;
    errno = error;
    return true;
}

std::size_t Most(std::size_t count, std::size_t Faults::*most) {
    const std::scoped_lock held(s_lock);
    return s_faults != nullptr && s_faults->*most > 0 ? std::min(count, s_faults->*most) : count;
}

bool RenameFails(const char* to) {
    const std::scoped_lock held(s_lock);
    if (!IsConcerned(to) || !IsTime(s_faults->renames, s_faults->failingRename)) return false;
    errno = s_faults->renameError;
    return true;
}

}  // namespace

Faults::Faults() {
    const std::scoped_lock held(s_lock);
    s_faults = this;
}

Faults::~Faults() {
    const std::scoped_lock held(s_lock);
    s_faults = nullptr;
}

FileHandle OpenToRead(const char* path, FileState& state) {
    return Note(SystemOpenToRead(path, state), path, false);
}

FileHandle OpenToWrite(const char* path) {
    return Note(SystemOpenToWrite(path), path, true);
}

FileHandle OpenNew(const char* path) {
    return Note(SystemOpenNew(path), path, true);
}

FileHandle OpenToAppend(const char* path) {
    return Note(SystemOpenToAppend(path), path, true);
}

std::ptrdiff_t ReadSome(FileHandle file, void* bytes, std::size_t count) {
    if (Fails(file, &Faults::reads, &Faults::failingRead, EIO)) return -1;
    return SystemReadSome(file, bytes, Most(count, &Faults::mostRead));
}

bool SeekTo(FileHandle file, std::uint64_t place) {
    return SystemSeekTo(file, place);
}

std::ptrdiff_t WriteSome(FileHandle file, const void* bytes, std::size_t count) {
    if (Fails(file, &Faults::writes, &Faults::failingWrite, ENOSPC)) return -1;
    return SystemWriteSome(file, bytes, Most(count, &Faults::mostWritten));
}

bool SyncFile(FileHandle file) {
    return !Fails(file, &Faults::syncs, &Faults::failingSync, EIO) && SystemSyncFile(file);
}

bool SyncFolderOf(const char* path) {
    return SystemSyncFolderOf(path);
}

bool CloseFile(FileHandle file) {
    bool written = false;
    {
        const std::scoped_lock held(s_lock);
        const auto found = s_open.find(file);
        written = found != s_open.end() && found->second.written;
    }
    const bool fails = written && Fails(file, &Faults::closes, &Faults::failingClose, EIO);
    {
        const std::scoped_lock held(s_lock);
        s_open.erase(file);
    }
    const bool closed = SystemCloseFile(file);
    if (fails) errno = EIO;
    return closed && !fails;
}

bool RenameOver(const char* from, const char* to) {
    return !RenameFails(to) && SystemRenameOver(from, to);
}

bool RenameNew(const char* from, const char* to) {
    return !RenameFails(to) && SystemRenameNew(from, to);
}

bool RemoveFile(const char* path) {
    return SystemRemoveFile(path);
}

}  // namespace platform
