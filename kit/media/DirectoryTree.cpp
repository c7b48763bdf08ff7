#include "DirectoryTree.h"

#include "../core/Error.h"
#include "../dataset/DataSetFile.h"

#include "media/CCDRObject.h"

#include <cerrno>
#include <limits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace korvane {

namespace {

constexpr int kDeepest = 16;
constexpr std::uint32_t kItemBytes = 16;       // header and delimitation
constexpr std::uint32_t kSequenceHeader = 12;  // of an element with a long length
constexpr std::uint64_t kPreambleAndMarker = 132;

// The module's encoder of directories.
class DirectoryWriter : public CCDRObject {
public:
    using CCDRObject::DDOLength;
    using CCDRObject::WriteDDO;
};

// The identifier by which a record is found.
std::string KeyOf(const DICOMObject& record) {
    const std::string type = FindText(record, tags::DirectoryRecordType);
    if (type == "PATIENT") return FindText(record, tags::PatientID);
    if (type == "STUDY") return FindText(record, tags::StudyInstanceUID);
    if (type == "SERIES") return FindText(record, tags::SeriesInstanceUID);
    return TextOf(record, tags::ReferencedSOPInstanceUIDInFile);
}

bool IsSame(const DICOMObject& a, const DICOMObject& b) {
    return FindText(a, tags::DirectoryRecordType) == FindText(b, tags::DirectoryRecordType) && KeyOf(a) == KeyOf(b);
}

void PutOffset(DICOMObject& record, Tag tag, std::uint32_t offset) {
    record.Take(tag);
    record.Push(CCDRObject::CreateVR(GroupOf(tag), ElementOf(tag), TypeCode("UL"), static_cast<unsigned>(offset)));
}

}  // namespace

// Takes the records that offsets lead to, each once.
class DirectoryTree::Reader {
public:
    Reader(DirectoryFile& file, const std::string& path, const Watch& watch)
        : m_File(file), m_Path(path), m_Watch(watch) {}

    std::vector<Node> TakeEntity(std::uint32_t offset, int depth) {
        std::vector<Node> nodes;
        while (offset != 0) {
            m_Watch.StopIfAsked();
            auto record = std::make_unique<DICOMDataObject>();
            const bool isNew = depth <= kDeepest && !m_File.HasOverlap() && m_Seen.insert(offset).second;
            if (!isNew || !m_File.Read(offset, *record))
                Refuse("there is no record of its own at " + std::to_string(offset));
            if (FindOffset(*record, tags::MRDRDirectoryRecordOffset) != 0)
                Refuse("the record at " + std::to_string(offset) + " names its file by another one, which is retired");
            offset = FindOffset(*record, tags::OffsetOfTheNextDirectoryRecord);
            const std::uint32_t lower = FindOffset(*record, tags::OffsetOfReferencedLowerLevelDirectoryEntity);
            nodes.push_back({std::move(record), TakeEntity(lower, depth + 1)});
        }
        return nodes;
    }

    std::size_t CountTaken() const { return m_Seen.size(); }

    [[noreturn]] void Refuse(const std::string& why) const {
        throw Error(ErrorKind::Damaged, m_Path + ": " + why).InFile(m_Path);
    }

private:
    DirectoryFile& m_File;
    const std::string& m_Path;
    const Watch& m_Watch;
    std::unordered_set<std::uint32_t> m_Seen;
};

DirectoryTree DirectoryTree::Read(const std::string& path, const Watch& watch) {
    DirectoryFile file(path, watch);
    Reader reader(file, path, watch);
    if (!file.IsComplete()) reader.Refuse("the directory ends early or is damaged");
    if (!file.IsExplicitLittleEndian()) {
        reader.Refuse("the directory is in " + DescribeSyntax(file.GetTransferSyntax()) +
                      ", where explicit VR little endian is asked for");
    }
    constexpr Tag kFirst = tags::OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity;
    DirectoryTree tree;
    tree.m_Roots = reader.TakeEntity(FindOffset(file.GetDataSet(), kFirst), 0);
    if (reader.CountTaken() != file.CountRecords()) {
        reader.Refuse("of " + std::to_string(file.CountRecords()) + " records " + std::to_string(reader.CountTaken()) +
                      " are led to");
    }
    tree.m_pHead = file.TakeHead();
    return tree;
}

void DirectoryTree::Merge(DirectoryTree other) {
    Join(m_Roots, std::move(other.m_Roots));
}

void DirectoryTree::Join(std::vector<Node>& nodes, std::vector<Node> others) {
    std::unordered_map<std::string, std::size_t> places;  // of those with something below them
    for (std::size_t i = 0; i < nodes.size(); ++i) places.try_emplace(KeyOf(*nodes[i].record), i);
    for (Node& other : others) {
        const auto found = places.find(KeyOf(*other.record));
        if (!other.below.empty() && found != places.end() && IsSame(*nodes[found->second].record, *other.record)) {
            Join(nodes[found->second].below, std::move(other.below));
        } else {
            nodes.push_back(std::move(other));
        }
    }
}

std::size_t DirectoryTree::Remove(const std::string& id) {
    return RemoveFrom(m_Roots, id);
}

std::size_t DirectoryTree::RemoveFrom(std::vector<Node>& nodes, const std::string& id) {
    std::size_t removed = 0;
    std::erase_if(nodes, [&](Node& node) {
        if (KeyOf(*node.record) == id) {
            ++removed;
            return true;
        }
        const std::size_t below = RemoveFrom(node.below, id);
        removed += below;
        return below > 0 && node.below.empty();
    });
    return removed;
}

void DirectoryTree::Walk(std::vector<Node>& nodes, std::size_t parents, const Visit& visit) {
    std::size_t number = 0;
    for (Node& node : nodes) {
        visit(node, parents, ++number);
        Walk(node.below, parents + 1, visit);
    }
}

namespace {

// Records in the order of the file, with the offsets that they get there.
class RecordLayout {
public:
    explicit RecordLayout(std::uint64_t base) : m_Next(base) {}

    struct Range {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
    };

    Range Place(std::vector<DirectoryTree::Node>& nodes) {
        Range range;
        DICOMObject* previous = nullptr;
        for (DirectoryTree::Node& node : nodes) {
            DICOMObject& record = *node.record;
            PutOffset(record, tags::OffsetOfTheNextDirectoryRecord, 0);
            PutOffset(record, tags::OffsetOfReferencedLowerLevelDirectoryEntity, 0);
            range.last = TakePlace(record);
            if (range.first == 0) range.first = range.last;
            if (previous != nullptr) PutOffset(*previous, tags::OffsetOfTheNextDirectoryRecord, range.last);
            previous = &record;
            m_Order.push_back(std::move(node.record));
            PutOffset(record, tags::OffsetOfReferencedLowerLevelDirectoryEntity, Place(node.below).first);
        }
        return range;
    }

    std::vector<std::unique_ptr<DICOMObject>>& GetOrder() { return m_Order; }

private:
    std::uint32_t TakePlace(const DICOMObject& record) {
        const std::uint64_t place = m_Next;
        m_Next += kItemBytes + DirectoryWriter::DDOLength(record, 0);
        if (m_Next > std::numeric_limits<std::uint32_t>::max())
            throw Error(ErrorKind::Unsupported, "the directory would be larger than its offsets can say");
        return static_cast<std::uint32_t>(place);
    }

    std::uint64_t m_Next;
    std::vector<std::unique_ptr<DICOMObject>> m_Order;
};

}  // namespace

void DirectoryTree::Write(const std::string& path) {
    constexpr Tag kFirst = tags::OffsetOfTheFirstDirectoryRecordOfTheRootDirectoryEntity;
    constexpr Tag kLast = tags::OffsetOfTheLastDirectoryRecordOfTheRootDirectoryEntity;
    DICOMDataObject& head = *m_pHead;
    DictionaryCodec().PrepareMetaInformation(&head, 3);
    ReplaceText(head, tags::MediaStorageSOPClassUID, TypeCode("UI"), kMediaDirectoryClassUid);
    PutOffset(head, tags::FileMetaInformationGroupLength, 0);  // the encoder puts in what it is
    PutOffset(head, kFirst, 0);
    PutOffset(head, kLast, 0);
    RecordLayout layout(DirectoryWriter::DDOLength(head, kPreambleAndMarker) + kSequenceHeader);
    const RecordLayout::Range range = layout.Place(m_Roots);
    m_Roots.clear();
    PutOffset(head, kFirst, range.first);
    PutOffset(head, kLast, range.last);
    constexpr Tag kRecords = tags::DirectoryRecordSequence;
    head.Push(CCDRObject::CreateVR(GroupOf(kRecords), ElementOf(kRecords), TypeCode("SQ"), std::string()));
    for (std::unique_ptr<DICOMObject>& record : layout.GetOrder()) {
        if (head.PushItemToLast(record.get()) == 0) throw std::bad_alloc();
        record.release();
    }
    errno = 0;
    if (DirectoryWriter::WriteDDO(path, head)) return;
    throw Error(ErrorKind::Disk, "cannot write " + path + ": " + SystemText(errno)).InFile(path);
}

}  // namespace korvane
