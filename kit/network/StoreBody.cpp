#include "StoreBody.h"

#include "Dicom/Lib/network/FolderSink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

namespace korvane {

namespace {

constexpr std::size_t kPreamble = 132;

// Long enough, and random enough, that no file has it.
std::string MakeBoundary() {
    constexpr char kDigits[] = "0123456789abcdef";
    std::random_device random;
    std::string boundary = "korvane-";
    for (int i = 0; i < 32; ++i) boundary += kDigits[random() & 15U];
    return boundary;
}

bool HasMeta(const StorageFile& file) {
    char bytes[kPreamble];
    platform::InputFile in;
    return file.dataOffset > kPreamble && in.Open(file.path.c_str()) && in.Read(bytes, sizeof bytes) == sizeof bytes &&
           std::memcmp(bytes + kPreamble - 4, "DICM", 4) == 0;
}

}  // namespace

StoreBody::StoreBody(const std::vector<const StorageFile*>& files) : m_Boundary(MakeBoundary()) {
    for (const StorageFile* const file : files) m_Parts.push_back(MakePart(*file, m_Parts.empty()));
    m_Parts.push_back({"\r\n--" + m_Boundary + "--\r\n", "", 0, 0});
    for (const Part& part : m_Parts) m_nLength += part.head.size() + part.count;
}

StoreBody::Part StoreBody::MakePart(const StorageFile& file, bool isFirst) const {
    Part part{(isFirst ? "--" : "\r\n--") + m_Boundary + "\r\nContent-Type: application/dicom\r\n\r\n", file.path, 0,
              file.dataOffset + file.dataLength};
    if (!HasMeta(file)) {
        const auto head = FileHead({file.sopClass, file.sopInstance, file.transferSyntax, ""});
        if (head.empty()) throw std::bad_alloc();
        part.head.append(head.begin(), head.end());
        part.begin = file.dataOffset;
        part.count = file.dataLength;
    }
    return part;
}

std::string StoreBody::GetType() const {
    return "multipart/related; type=\"application/dicom\"; boundary=" + m_Boundary;
}

// Opens the file of the part, whose head is out.
bool StoreBody::Next() {
    const Part& part = m_Parts[m_nPart];
    m_bOpen = true;
    m_nLeft = part.count;
    if (part.path.empty()) return true;
    m_File.Close();
    errno = 0;
    return m_File.Open(part.path.c_str()) && (part.begin == 0 || m_File.Seek(part.begin));
}

void StoreBody::Rewind() {
    m_nPart = 0;
    m_nHead = 0;
    m_bOpen = false;
}

std::size_t StoreBody::Read(char* bytes, std::size_t capacity) {
    std::size_t given = 0;
    while (given < capacity && m_nPart < m_Parts.size()) {
        const Part& part = m_Parts[m_nPart];
        if (m_nHead < part.head.size()) {
            const std::size_t count = part.head.copy(bytes + given, capacity - given, m_nHead);
            m_nHead += count;
            given += count;
            continue;
        }
        if (!m_bOpen && !Next()) throw FileLost(m_nPart, SystemText(errno));
        if (m_nLeft == 0) {
            ++m_nPart;
            m_nHead = 0;
            m_bOpen = false;
            continue;
        }
        const std::uint64_t room = capacity - given;
        const std::size_t count = m_File.Read(bytes + given, static_cast<std::size_t>(std::min(room, m_nLeft)));
        if (count == 0) {
            throw FileLost(m_nPart, m_File.HasFailed() ? SystemText(m_File.GetError()) : "has become shorter");
        }
        m_nLeft -= count;
        given += count;
    }
    return given;
}

}  // namespace korvane
