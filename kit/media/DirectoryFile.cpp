#include "DirectoryFile.h"

#include "../core/Error.h"

#include "base/Bytes.h"
#include "platform/File.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <utility>

namespace korvane {

namespace {

constexpr std::uint64_t kLargest = std::uint64_t{1} << 31;

std::vector<unsigned char> ReadWhole(const std::string& path, const Watch& watch) {
    const auto fail = [&](const std::string& reason, ErrorKind kind) {
        return Error(kind, "cannot read " + path + ": " + reason).InFile(path);
    };
    platform::InputFile file;
    file.SetStopQuestion(watch.GetStopQuestion());
    errno = 0;
    if (!file.Open(path.c_str())) {
        throw fail(SystemText(errno), errno == ENOENT ? ErrorKind::NotFound : ErrorKind::Disk);
    }
    if (file.GetSize() > kLargest) throw fail("too large", ErrorKind::Unsupported);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(file.GetSize()));
    bytes.resize(file.Read(bytes.data(), bytes.size()));
    watch.StopIfAsked();
    if (file.HasFailed()) throw fail(SystemText(file.GetError()), ErrorKind::Disk);
    return bytes;
}

}  // namespace

DirectoryFile::DirectoryFile(const std::string& path, const Watch& watch) : m_Bytes(ReadWhole(path, watch)) {
    DICOMFileReader reader(m_Codec);
    m_pDataSet = reader.LoadMemory(m_Bytes.data(), m_Bytes.size());
    const VR* const records = m_pDataSet != nullptr ? FindElement(*m_pDataSet, tags::DirectoryRecordSequence) : nullptr;
    if (!reader.HasPreamble() || records == nullptr)
        throw Error(ErrorKind::NotDicom, path + ": not a DICOMDIR").InFile(path);
    m_bComplete = reader.IsComplete();
    m_Syntax = reader.GetSyntax();
    m_TransferSyntax = reader.GetTransferSyntax();
    m_nRecords = records->GetItemCount();
}

std::unique_ptr<DICOMDataObject> DirectoryFile::TakeHead() {
    DropElement(*m_pDataSet, tags::DirectoryRecordSequence);
    return std::move(m_pDataSet);
}

bool DirectoryFile::Read(std::uint32_t offset, DICOMDataObject& record) {
    if (offset > m_Bytes.size() || m_Bytes.size() - offset < 8) return false;
    const int order = m_Syntax == kExplicitBigEndian ? Buffer::kBigEndian : Buffer::kLittleEndian;
    MemoryInputBuffer buffer(m_Bytes.data() + offset, m_Bytes.size() - offset, order);
    const ElementHeaderReader reader(m_Syntax != kImplicitLittleEndian, m_Syntax == kExplicitBigEndian);
    ElementHeader header;
    if (!reader.Read(buffer, header) || !header.IsDelimiter() || header.element != ElementHeader::kItem) return false;
    if (header.HasUndefinedLength()) return ReadItem(buffer, record);
    if (header.length > buffer.GetRemaining()) return false;
    const Buffer::Window window(buffer, header.length);
    return ReadItem(buffer, record);
}

bool DirectoryFile::ReadItem(Buffer& buffer, DICOMDataObject& record) {
    const int parsed = m_Syntax == kImplicitLittleEndian ? m_Codec.Implicit_ParseRawVRIntoDCM(buffer, &record, 1)
                                                         : m_Codec.ExplicitParse(buffer, &record, 1);
    m_nRead += buffer.GetPosition();
    return parsed != 0 && FindElement(record, tags::DirectoryRecordType) != nullptr;
}

std::uint32_t FindOffset(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    return element != nullptr && element->m_Length == 4 && element->m_pData != nullptr
               ? platform::LoadLittle<std::uint32_t>(element->m_pData)
               : 0;
}

std::string PathOfFileId(const std::string& fileId) {
    std::string path;
    std::size_t begin = 0;
    while (begin <= fileId.size()) {
        const std::size_t end = std::min(fileId.find('\\', begin), fileId.size());
        std::string name = fileId.substr(begin, end - begin);
        while (!name.empty() && name.back() == ' ') name.pop_back();
        const bool isName = !name.empty() && name.front() != '.' && std::all_of(name.begin(), name.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
        });
        if (!isName) return {};
        path += '/' + name;
        begin = end + 1;
    }
    return path;
}

}  // namespace korvane
