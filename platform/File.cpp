#include "File.h"

#include <algorithm>
#include <cerrno>

#if defined(_WIN32)
#include "WideText.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace platform {

namespace {

constexpr std::size_t kLargestRead = std::size_t{16} << 20;  // the system's own calls count in 32 bits

#if defined(_WIN32)

/// `errno` after a failure to open the path.
void NameLength(const char* path) {
    if (errno == ENOENT && IsPathTooLong(path)) errno = ENAMETOOLONG;
}

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

#endif

}  // namespace

#if defined(_WIN32)

std::string NativePath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '/', '\\');
    return native;
}

bool IsPathTooLong(const char* path) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    return GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr) > MAX_PATH;  // both with the zero at the end
}

std::FILE* OpenFile(const char* path, const char* mode) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    if (IsDirectory(wide)) {
        errno = EISDIR;
        return nullptr;
    }
    std::FILE* const file = _wfopen(wide.c_str(), WideText(mode).c_str());
    if (file == nullptr) NameLength(path);
    return file;
}

int SeekFile(std::FILE* file, std::uint64_t offset) {
    return _fseeki64(file, static_cast<long long>(offset), SEEK_SET);
}

bool FileExists(const char* path) {
    return GetFileAttributesW(WideText(NativePath(path).c_str()).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool RenameOver(const char* from, const char* to) {
    const std::wstring oldName = WideText(NativePath(from).c_str());
    const std::wstring newName = WideText(NativePath(to).c_str());
    if (MoveFileExW(oldName.c_str(), newName.c_str(), MOVEFILE_REPLACE_EXISTING) != 0) return true;
    errno = GetLastError() == ERROR_FILE_NOT_FOUND ? ENOENT : EACCES;
    return false;
}

bool RemoveFile(const char* path) {
    return _wremove(WideText(NativePath(path).c_str()).c_str()) == 0;
}

bool InputFile::Open(const char* path) {
    Close();
    const std::wstring wide = WideText(NativePath(path).c_str());
    if (IsDirectory(wide)) {
        errno = EISDIR;
        return false;
    }
    m_Handle = _wopen(wide.c_str(), _O_RDONLY | _O_BINARY | _O_SEQUENTIAL);
    if (m_Handle < 0) {
        NameLength(path);
        return false;
    }
    const long long size = _filelengthi64(m_Handle);
    m_Size = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    return true;
}

#else

std::string NativePath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

bool IsPathTooLong(const char*) {
    return false;
}

std::FILE* OpenFile(const char* path, const char* mode) {
    const std::string native = NativePath(path);
    struct stat status;
    if (stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return nullptr;
    }
    return std::fopen(native.c_str(), mode);
}

int SeekFile(std::FILE* file, std::uint64_t offset) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET);
}

bool FileExists(const char* path) {
    return access(NativePath(path).c_str(), F_OK) == 0;
}

bool RenameOver(const char* from, const char* to) {
    return std::rename(NativePath(from).c_str(), NativePath(to).c_str()) == 0;
}

bool RemoveFile(const char* path) {
    return unlink(NativePath(path).c_str()) == 0;
}

bool InputFile::Open(const char* path) {
    Close();
    m_Handle = open(NativePath(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (m_Handle < 0) return false;
    struct stat status;
    if (fstat(m_Handle, &status) != 0 || S_ISDIR(status.st_mode)) {
        Close();
        errno = EISDIR;
        return false;
    }
    m_Size = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    return true;
}

#endif

InputFile::~InputFile() {
    Close();
}

void InputFile::Close() {
    if (m_Handle >= 0) close(m_Handle);
    m_Handle = -1;
    m_Size = 0;
    m_Error = 0;
    m_Stop.Restart();
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
#if defined(_WIN32)
        const auto got = read(m_Handle, first + done, static_cast<unsigned>(wanted));
#else
        const auto got = read(m_Handle, first + done, wanted);
#endif
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
    Close();
    m_Error = 0;
    m_Stop.Restart();
    m_pFile = OpenFile(path, "wb");
    return m_pFile != nullptr;
}

bool OutputFile::Write(const void* bytes, std::size_t count) {
    const auto* const first = static_cast<const unsigned char*>(bytes);
    const std::size_t largest = m_Stop.HasQuestion() ? StopCheck::kStep : count;
    if (m_pFile == nullptr && m_Error == 0) m_Error = EBADF;
    for (std::size_t done = 0; done < count && m_Error == 0;) {
        const std::size_t step = std::min(count - done, largest);
        if (m_Stop.IsStopped(step)) {
            m_Error = EINTR;
        } else if (std::fwrite(first + done, 1, step, m_pFile) != step) {
            m_Error = errno;
        }
        done += step;
    }
    return Succeeded();
}

bool OutputFile::Close() {
    if (m_pFile != nullptr && std::fclose(m_pFile) != 0 && m_Error == 0) m_Error = errno;
    m_pFile = nullptr;
    return Succeeded();
}

bool OutputFile::Succeeded() const {
    if (m_Error != 0) errno = m_Error;
    return m_Error == 0;
}

}  // namespace platform
