#include "DirectoryCheck.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/Toolkit.h"
#include "DirectoryFile.h"
#include "MediaHeader.h"
#include "MediumProfile.h"

#include "platform/File.h"

#include <cstdint>
#include <unordered_set>
#include <utility>

namespace korvane {

namespace {

constexpr int kDeepest = 16;
constexpr std::size_t kMostProblems = 100;

class Checker {
public:
    Checker(const std::string& root, const std::string& directory, MediumDepth depth, const Watch& watch,
            const std::string& profile)
        : m_Root(root), m_Depth(depth), m_Watch(watch), m_Profile(profile), m_File(directory, watch) {
        m_Report.root = root;
    }

    MediumContents Check() {
        const DICOMObject& dataSet = m_File.GetDataSet();
        if (!m_File.IsComplete()) Note("the directory ends early or is damaged");
        if (!m_File.IsExplicitLittleEndian()) {
            Note("the directory is in " + DescribeSyntax(m_File.GetTransferSyntax()) +
                 ", where explicit VR little endian is asked for");
        }
        const std::uint32_t last =
            Follow(FindOffset(dataSet, tags::OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity), 0);
        const std::uint32_t named = FindOffset(dataSet, tags::OffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity);
        if (last != named) {
            Note("the last record is said to be at " + std::to_string(named) + ", yet is at " + std::to_string(last));
        }
        const std::size_t records = m_File.CountRecords();
        if (m_Seen.size() < records) Note(std::to_string(records - m_Seen.size()) + " records are not led to");
        return std::move(m_Report);
    }

private:
    void Note(const std::string& problem) {
        if (m_Report.problems.size() < kMostProblems) m_Report.problems.push_back(problem);
        if (m_Report.problems.size() == kMostProblems - 1) m_Report.problems.emplace_back("and more");
    }

    // Follows the records of one directory entity and all below them. Returns the offset of the last; 0 without one.
    std::uint32_t Follow(std::uint32_t offset, int depth) {
        std::uint32_t last = 0;
        while (offset != 0) {
            m_Watch.StopIfAsked();
            DICOMDataObject record;
            if (m_File.HasOverlap()) {
                if (!std::exchange(m_bOverlap, true)) Note("records overlap");
                break;
            }
            if (depth > kDeepest || !m_Seen.insert(offset).second) {
                Note("the record at " + std::to_string(offset) + " is led to again");
                break;
            }
            if (!m_File.Read(offset, record)) {
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

    void Examine(std::uint32_t offset, const DICOMObject& record) {
        const std::string type = FindText(record, tags::DirectoryRecordType);
        if (type == "PATIENT") ++m_Report.patients;
        if (type == "STUDY") ++m_Report.studies;
        if (type == "SERIES") ++m_Report.series;
        const std::string fileId = FindText(record, tags::ReferencedFileID);
        if (fileId.empty()) return;
        ++m_Report.files;
        const std::string path = PathOfFileId(fileId);
        const std::string at = type + " record at " + std::to_string(offset) + ": ";
        const std::string syntax = TextOf(record, tags::ReferencedTransferSyntaxUIDInFile);
        if (!m_Profile.Allows(syntax)) Note(at + DescribeSyntax(syntax) + " is not of " + m_Profile.GetName());
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
    MediumProfile m_Profile;
    DirectoryFile m_File;
    bool m_bOverlap = false;
    std::unordered_set<std::uint32_t> m_Seen;
    MediumContents m_Report;
};

}  // namespace

MediumContents CheckDirectory(const std::string& root, const std::string& directory, MediumDepth depth,
                              const Watch& watch, const std::string& profile) {
    return Checker(root, directory, depth, watch, profile).Check();
}

MediumContents CheckMedium(const std::string& root, MediumDepth depth, Watcher* watcher, const std::string& profile) {
    const std::string folder = WithoutEndSlash(root);
    return CheckDirectory(folder, folder + "/DICOMDIR", depth, watcher, profile);
}

}  // namespace korvane
