#include "File.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace platform {

namespace {

constexpr std::size_t kLargestRead = std::size_t{16} << 20;  // the system's own calls count in 32 bits
constexpr std::size_t kLargestWrite = std::size_t{16} << 20;
constexpr std::size_t kWriteArea = std::size_t{64} << 10;

}  // namespace

std::string FolderOf(const std::string& path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? "" : path.substr(0, separator + 1);
}

InputFile::~InputFile() {
    Close();
}

bool InputFile::Open(const char* path) {
    Close();
    m_Handle = OpenToRead(path, m_State);
    return m_Handle >= 0;
}

void InputFile::Close() {
    if (m_Handle >= 0) CloseFile(m_Handle);
    m_Handle = -1;
    m_State = {};
    m_Error = 0;
    m_Stop.Restart();
}

bool InputFile::Seek(std::uint64_t place) {
    if (SeekTo(m_Handle, place)) return true;
    m_Error = errno;
    return false;
}

std::size_t InputFile::Read(void* bytes, std::size_t capacity) {
    auto* const first = static_cast<unsigned char*>(bytes);
    const std::size_t largest = m_Stop.HasQuestion() ? StopCheck::kStep : kLargestRead;
    std::size_t done = 0;
    while (done < capacity && m_Handle >= 0) {
        const std::size_t wanted = std::min(capacity - done, largest);
        if (m_Stop.IsStopped(wanted)) {
            m_Error = errno = EINTR;
            break;
        }
        const std::ptrdiff_t got = ReadSome(m_Handle, first + done, wanted);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            m_Error = errno;
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

OutputFile::~OutputFile() {
    Close();
}

bool OutputFile::Open(const char* path) {
    return Begin(path, OpenToWrite);
}

bool OutputFile::OpenExclusively(const char* path) {
    return Begin(path, OpenNew);
}

bool OutputFile::OpenToAppend(const char* path) {
    return Begin(path, platform::OpenToAppend);
}

bool OutputFile::Begin(const char* path, FileHandle (*open)(const char*)) {
    Close();
    m_Error = 0;
    m_Used = 0;
    m_Stop.Restart();
    m_Handle = open(path);
    return m_Handle >= 0;
}

bool OutputFile::Write(const void* bytes, std::size_t count) {
    if (m_Handle < 0 && m_Error == 0) m_Error = EBADF;
    if (m_Used + count > kWriteArea) WriteCollected();
    if (count > kWriteArea / 2) {
        WriteThrough(bytes, count);
        return Succeeded();
    }
    if (m_Error == 0 && count > 0) {
        if (m_pArea == nullptr) m_pArea = std::make_unique_for_overwrite<unsigned char[]>(kWriteArea);
        std::memcpy(m_pArea.get() + m_Used, bytes, count);
        m_Used += count;
    }
    return Succeeded();
}

void OutputFile::WriteCollected() {
    WriteThrough(m_pArea.get(), m_Used);
    m_Used = 0;
}

// Writes collected bytes first, so that the order is kept.
void OutputFile::WriteThrough(const void* bytes, std::size_t count) {
    if (m_Used > 0 && bytes != m_pArea.get()) WriteCollected();
    const auto* place = static_cast<const unsigned char*>(bytes);
    const std::size_t largest = m_Stop.HasQuestion() ? StopCheck::kStep : kLargestWrite;
    while (count > 0 && m_Error == 0) {
        const std::size_t step = std::min(count, largest);
        if (m_Stop.IsStopped(step)) {
            m_Error = EINTR;
            break;
        }
        const std::ptrdiff_t written = WriteSome(m_Handle, place, step);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            m_Error = written < 0 ? errno : ENOSPC;
            break;
        }
        place += written;
        count -= static_cast<std::size_t>(written);
    }
}

bool OutputFile::Flush() {
    WriteCollected();
    return Succeeded();
}

bool OutputFile::Sync() {
    WriteCollected();
    if (m_Handle >= 0 && m_Error == 0 && !SyncFile(m_Handle)) m_Error = errno;
    return Succeeded();
}

bool OutputFile::Close() {
    if (m_Handle < 0) return Succeeded();
    WriteCollected();
    if (!CloseFile(m_Handle) && m_Error == 0) m_Error = errno;
    m_Handle = -1;
    return Succeeded();
}

bool OutputFile::Succeeded() const {
    if (m_Error != 0) errno = m_Error;
    return m_Error == 0;
}

}  // namespace platform
