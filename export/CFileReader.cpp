#include "CFileReader.h"

#include "base/Layout.h"
#include "platform/File.h"

#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {

// Cuts off the comment and trailing white space. True when anything but white space is left.
bool CutLine(char* line) {
    std::size_t length = std::strcspn(line, "#");
    while (length > 0 && std::isspace(static_cast<unsigned char>(line[length - 1])) != 0) {
        --length;
    }
    line[length] = '\0';
    return length > 0;
}

}  // namespace

CFileReader::CFileReader() : m_nLine(0), m_pFile(nullptr), m_Line{}, m_bBorrowed(false) {}

CFileReader::CFileReader(const char* path) : CFileReader() {
    m_pFile = platform::OpenFile(path, "rt");
    if (m_pFile == nullptr) {
        throw std::strerror(errno);
    }
}

CFileReader::CFileReader(const CFileReader& source) : CFileReader() {
    *this = source;
}

CFileReader& CFileReader::operator=(const CFileReader& source) {
    if (this == &source) {
        return *this;
    }
    if (m_pFile != source.m_pFile) {
        Close();
        m_pFile = source.m_pFile;
        m_bBorrowed = m_pFile != nullptr;
    }
    m_nLine = source.m_nLine;
    std::memcpy(m_Line, source.m_Line, sizeof m_Line);
    return *this;
}

CFileReader::~CFileReader() {
    static_assert(platform::LieInOrder(
        {offsetof(CFileReader, m_nLine), offsetof(CFileReader, m_pFile), offsetof(CFileReader, m_Line)}));
    Close();
}

void CFileReader::Close() {
    if (m_pFile != nullptr && !m_bBorrowed) {
        std::fclose(m_pFile);
    }
    m_pFile = nullptr;
    m_bBorrowed = false;
}

bool CFileReader::ReadNextLine(char* dst, int size) {
    if (m_pFile == nullptr) {
        return false;
    }
    do {
        if (std::fgets(m_Line, sizeof m_Line, m_pFile) == nullptr) {
            if (std::feof(m_pFile) != 0) {
                return false;
            }
            throw std::strerror(errno);
        }
        ++m_nLine;
    } while (!CutLine(m_Line));
    if (size > 0) {
        std::strncpy(dst, m_Line, static_cast<std::size_t>(size));
        dst[size - 1] = '\0';
    }
    return true;
}

bool CFileReader::Eof() const {
    return m_pFile == nullptr || std::feof(m_pFile) != 0;
}

void CFileReader::Reset() {
    m_nLine = 0;
    if (m_pFile != nullptr) {
        std::fseek(m_pFile, 0, SEEK_SET);
    }
}
