#include "CFileWriter.h"

#include "platform/File.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

constexpr std::size_t kBufferSize = 1024 * 1024;

}  // namespace

CFileWriter::CFileWriter() : m_pFile(nullptr), m_bBorrowed(false) {}

CFileWriter::CFileWriter(const CFileWriter& source) : m_pFile(source.m_pFile), m_bBorrowed(source.m_pFile != nullptr) {}

CFileWriter& CFileWriter::operator=(const CFileWriter& source) {
    if (this != &source && m_pFile != source.m_pFile) {
        CFileWriter::Close();
        m_pFile = source.m_pFile;
        m_bBorrowed = m_pFile != nullptr;
    }
    return *this;
}

CFileWriter::~CFileWriter() {
    CFileWriter::Close();
}

bool CFileWriter::Open(const char* path, const char* mode) {
    if (m_pFile != nullptr) {
        Close();
        CFileWriter::Close();  // a derived class's Close may leave the file open, and the new file is to use its buffer
    }
    m_pFile = platform::OpenFile(path, mode);
    if (m_pFile == nullptr) {
        return false;
    }
    if (!m_pBuffer) {
        m_pBuffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
    }
    std::setvbuf(m_pFile, m_pBuffer.get(), _IOFBF, kBufferSize);
    return true;
}

int CFileWriter::Close() {
    if (m_pFile == nullptr) {
        return 0;
    }
    const int result = m_bBorrowed ? std::fflush(m_pFile) : std::fclose(m_pFile);
    m_pFile = nullptr;
    m_bBorrowed = false;
    return result;
}

unsigned CFileWriter::Write(void* buf, unsigned size, unsigned count) {
    return m_pFile == nullptr ? 0u : static_cast<unsigned>(std::fwrite(buf, size, count, m_pFile));
}

int CFileWriter::Print(const char* format, ...) {
    if (m_pFile == nullptr) {
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int result = std::vfprintf(m_pFile, format, arguments);
    va_end(arguments);
    return result;
}

unsigned CFileWriter::Seek(unsigned long offset) {
    if (m_pFile == nullptr) {
        errno = EINVAL;
        return static_cast<unsigned>(-1);
    }
    return static_cast<unsigned>(platform::SeekFile(m_pFile, offset));
}

char* CFileWriter::StrError() {
    return std::strerror(errno);
}
