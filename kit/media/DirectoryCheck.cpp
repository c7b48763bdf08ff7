#include "DirectoryCheck.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/Toolkit.h"
#include "MediaHeader.h"

#include "base/Bytes.h"
#include "platform/File.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <unordered_set>

namespace korvane {

namespace {

constexpr int kDeepest = 16;
constexpr std::size_t kMostProblems = 100;
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

std::uint32_t FindOffset(const DICOMObject& dataSet, Tag tag) {
    const VR* const element = FindElement(dataSet, tag);
    return element != nullptr && element->m_Length == 4 && element->m_pData != nullptr
               ? platform::LoadLittle<std::uint32_t>(element->m_pData)
               : 0;
}

// The path, relative to the root, of the file that a file ID names; "" for a text that is no file ID. The directory is
// not trusted: a component that could lead out of the root is refused.
std::string PathOf(const std::string& fileId) {
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

class Checker {
public:
    Checker(const std::string& root, const std::string& directory, MediumDepth depth, const Watch& watch)
        : m_Root(root), m_Depth(depth), m_Watch(watch), m_Bytes(ReadWhole(directory, watch)) {
        m_Report.root = root;
    }

    MediumContents Check(const std::string& directory) {
        DICOMFileReader reader(m_Codec);
        const auto dataSet = reader.LoadMemory(m_Bytes.data(), m_Bytes.size());
        const VR* const sequence = dataSet != nullptr ? FindElement(*dataSet, tags::DirectoryRecordSequence) : nullptr;
        if (!reader.HasPreamble() || sequence == nullptr) {
            throw Error(ErrorKind::NotDicom, directory + ": not a DICOMDIR").InFile(directory);
        }
        if (!reader.IsComplete()) Note("the directory ends early or is damaged");
        m_Syntax = reader.GetSyntax();
        if (m_Syntax != kExplicitLittleEndian) {
            Note("the directory is in " + DescribeSyntax(reader.GetTransferSyntax()) +
                 ", where explicit VR little endian is asked for");
        }
        m_Items = sequence->GetItemCount();
        const std::uint32_t last =
            Follow(FindOffset(*dataSet, tags::OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity), 0);
        const std::uint32_t named = FindOffset(*dataSet, tags::OffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity);
        if (last != named) {
            Note("the last record is said to be at " + std::to_string(named) + ", yet is at " + std::to_string(last));
        }
        if (m_Seen.size() < m_Items) Note(std::to_string(m_Items - m_Seen.size()) + " records are not led to");
        return std::move(m_Report);
    }

private:
    void Note(const std::string& problem) {
        if (m_Report.problems.size() < kMostProblems) m_Report.problems.push_back(problem);
        if (m_Report.problems.size() == kMostProblems - 1) m_Report.problems.emplace_back("and more");
    }

    // Notes a problem when more bytes of records have been read than the file has: they overlap. A hostile directory
    // could have the same bytes read again and again.
    void NoteOverlap() {
        if (!m_bOverlap) Note("records overlap");
        m_bOverlap = true;
    }

    // Follows the records of one directory entity and all below them. Returns the offset of the last; 0 without one.
    std::uint32_t Follow(std::uint32_t offset, int depth) {
        std::uint32_t last = 0;
        while (offset != 0) {
            m_Watch.StopIfAsked();
            DICOMDataObject record;
            if (m_nParsed > m_Bytes.size()) {
                NoteOverlap();
                break;
            }
            if (depth > kDeepest || !m_Seen.insert(offset).second) {
                Note("the record at " + std::to_string(offset) + " is led to again");
                break;
            }
            if (!Parse(offset, record)) {
                m_Seen.erase(offset);
                Note("there is no record at " + std::to_string(offset));
                break;
            }
            last = offset;
            Examine(offset, record);
            Follow(FindOffset(record, tags::OffsetOfReferencedLowerLevelDirectoryEntity), depth + 1);
            offset = FindOffset(record, tags::OffsetOfTheNextDirectoryRecord);
        }
        return last;
    }

    // Reads the record at an offset of the file.
    bool Parse(std::uint32_t offset, DICOMDataObject& record) {
        if (offset > m_Bytes.size() || m_Bytes.size() - offset < 8) return false;
        const int order = m_Syntax == kExplicitBigEndian ? Buffer::kBigEndian : Buffer::kLittleEndian;
        MemoryInputBuffer buffer(m_Bytes.data() + offset, m_Bytes.size() - offset, order);
        const ElementHeaderReader reader(m_Syntax != kImplicitLittleEndian, m_Syntax == kExplicitBigEndian);
        ElementHeader header;
        if (!reader.Read(buffer, header) || !header.IsDelimiter() || header.element != ElementHeader::kItem)
            return false;
        if (header.HasUndefinedLength()) return ParseItem(buffer, record);
        if (header.length > buffer.GetRemaining()) return false;
        const Buffer::Window window(buffer, header.length);
        return ParseItem(buffer, record);
    }

    bool ParseItem(Buffer& buffer, DICOMDataObject& record) {
        const int parsed = m_Syntax == kImplicitLittleEndian ? m_Codec.Implicit_ParseRawVRIntoDCM(buffer, &record, 1)
                                                             : m_Codec.ExplicitParse(buffer, &record, 1);
        m_nParsed += buffer.GetPosition();
        return parsed != 0 && FindElement(record, tags::DirectoryRecordType) != nullptr;
    }

    void Examine(std::uint32_t offset, const DICOMObject& record) {
        const std::string type = FindText(record, tags::DirectoryRecordType);
        if (type == "PATIENT") ++m_Report.patients;
        if (type == "STUDY") ++m_Report.studies;
        if (type == "SERIES") ++m_Report.series;
        const std::string fileId = FindText(record, tags::ReferencedFileID);
        if (fileId.empty()) return;
        ++m_Report.files;
        const std::string path = PathOf(fileId);
        const std::string at = type + " record at " + std::to_string(offset) + ": ";
        if (path.empty()) {
            Note(at + "\"" + fileId + "\" is no file ID");
        } else if (m_Depth == MediumDepth::Contents) {
            CompareWithFile(at, m_Root + path, record);
        } else if (!platform::FileExists((m_Root + path).c_str())) {
            Note(at + path.substr(1) + " is not there");
        }
    }

    void CompareWithFile(const std::string& at, const std::string& path, const DICOMObject& record) {
        struct Pair {
            Tag inRecord;
            Tag inFile;
            const char* name;
        };
        static constexpr Pair kPairs[] = {
            {tags::ReferencedSOPClassUIDInFile, tags::SOPClassUID, "SOP class"},
            {tags::ReferencedSOPInstanceUIDInFile, tags::SOPInstanceUID, "SOP instance"},
            {tags::ReferencedTransferSyntaxUIDInFile, tags::TransferSyntaxUID, "transfer syntax"},
        };
        try {
            const DataSetFile file = ReadDataSetFile(path, kStopBeforePixelData, m_Watch);
            if (file.dataSet == nullptr) {
                Note(at + path + " is not a DICOM file");
                return;
            }
            if (!file.complete || file.pixelsPresent < file.pixelLength) {
                Note(at + path + " ends early or is damaged");
            }
            for (const Pair& pair : kPairs) {
                const std::string said = TextOf(record, pair.inRecord);
                const std::string found = TextOf(*file.dataSet, pair.inFile);
                if (said == found) continue;
                std::string what = at + path + ": the ";
                what.append(pair.name).append(" is ").append(found).append(", not ").append(said);
                Note(what);
            }
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) throw;
            Note(at + error.what());
        }
    }

    std::string m_Root;
    MediumDepth m_Depth;
    Watch m_Watch;
    std::vector<unsigned char> m_Bytes;
    DictionaryCodec m_Codec;
    int m_Syntax = kExplicitLittleEndian;
    std::size_t m_Items = 0;
    std::uint64_t m_nParsed = 0;  // bytes of all records
    bool m_bOverlap = false;
    std::unordered_set<std::uint32_t> m_Seen;
    MediumContents m_Report;
};

}  // namespace

MediumContents CheckDirectory(const std::string& root, const std::string& directory, MediumDepth depth,
                              const Watch& watch) {
    return Checker(root, directory, depth, watch).Check(directory);
}

MediumContents CheckMedium(const std::string& root, MediumDepth depth, Watcher* watcher) {
    const std::string folder = WithoutEndSlash(root);
    return CheckDirectory(folder, folder + "/DICOMDIR", depth, watcher);
}

}  // namespace korvane
