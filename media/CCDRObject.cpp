#include "CCDRObject.h"

#include "StoredSyntax.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"
#include "Dicom/Lib/pixels/CodecManager.h"
#include "Dicom/Lib/storage/DICOMFile.h"
#include "platform/File.h"
#include "platform/FileTree.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>
#include <vector>

namespace {

// `MyCopyFunc`, which may be stopped.
int Duplicate(const char* destination, const char* source, const platform::StopQuestion& stop) {
    if (platform::FileExists(destination)) throw std::string("Destination is not empty");
    if (!platform::DuplicateFile(source, destination, stop)) {
        throw std::string("Cannot copy ") + source + " to " + destination;
    }
    return 1;
}

}  // namespace

DcmDictionary* CCDRObject::Dictionary = nullptr;

// What one `AddIOD` has put into the tree and on the disk: taken away again unless it is kept.
class CCDRObject::Placing {
public:
    explicit Placing(const std::string& root) : m_Root(root) {}
    ~Placing() {
        while (m_Count > 0) {
            CDRRecordList& list = *m_Lists[--m_Count];
            const CDRRecord& record = *list.GetAt(list.GetSize() - 1);
            if (record.GetLetter() != 'I' && !record.m_Path.empty()) {
                platform::RemoveFolder((m_Root + "\\" + record.m_Path).c_str());
            }
            list.RemoveLast();
        }
    }
    Placing(const Placing&) = delete;
    Placing& operator=(const Placing&) = delete;

    // The last record of the list is new.
    void Add(CDRRecordList& list) { m_Lists[m_Count++] = &list; }
    void Keep() { m_Count = 0; }

private:
    const std::string& m_Root;
    std::array<CDRRecordList*, 4> m_Lists{};
    std::size_t m_Count = 0;
};

CCDRObject::CCDRObject() {
    AAssociateRQ::m_TransferSyntax = UidField(kExplicitLittleEndianUid);  // what DICOMDIR is written in
}

CCDRObject::CCDRObject(const CCDRObject& other) : CPercentGenerator(other), DcmService() {
    *this = other;
}

CCDRObject& CCDRObject::operator=(const CCDRObject& other) {
    if (this == &other) return *this;
    CPercentGenerator::operator=(other);
    AAssociateRQ::m_TransferSyntax = other.AAssociateRQ::m_TransferSyntax;
    Reset();
    m_Root = other.m_Root;
    m_FileRoot = other.m_FileRoot;
    m_FileSetID = other.m_FileSetID;
    m_SourceAETitle = other.m_SourceAETitle;
    m_MediaStorageUID = other.m_MediaStorageUID;
    m_bConsistencyFlag = other.m_bConsistencyFlag;
    SetHardLinks(other.m_bHardLinks);
    m_Stop = other.m_Stop;
    return *this;
}

CCDRObject::~CCDRObject() {
    DeleteRecordList(m_Patients);
}

void CCDRObject::SetRoot(const std::string& root) {
    m_Root = root;
}

const std::string& CCDRObject::GetRoot() const {
    return m_Root;
}

void CCDRObject::SetFileRoot(const std::string& fileRoot) {
    m_FileRoot = fileRoot;
}

const std::string& CCDRObject::GetFileRoot() const {
    return m_FileRoot;
}

std::string CCDRObject::GetFilePath() const {
    return m_FileRoot.empty() ? m_Root : m_Root + "\\" + m_FileRoot;
}

void CCDRObject::SetDictionary(DcmDictionary* dictionary) {
    Dictionary = dictionary;
}

void CCDRObject::SetFileSetID(const std::string& id) {
    m_FileSetID = id;
}

void CCDRObject::SetSourceAETitle(const std::string& title) {
    m_SourceAETitle = title;
}

void CCDRObject::SetMediaStorageUID(const std::string& uid) {
    m_MediaStorageUID = uid;
}

void CCDRObject::SetConsistencyFlag(bool flag) {
    m_bConsistencyFlag = flag;
}

void CCDRObject::SetHardLinks(bool link) {
    m_bHardLinks = link;
    m_pCopyFunction = link ? nullptr : MyCopyFunc;
}

void CCDRObject::SetStopQuestion(std::function<bool()> stop) {
    m_Stop = std::move(stop);
}

const std::string& CCDRObject::GetReason() const {
    return m_Reason;
}

void CCDRObject::Reset() {
    DeleteRecordList(m_Patients);
    m_pCurrent = nullptr;
    m_PrivateFiles = 0;
    m_MediaStorageUID.clear();
}

std::string CCDRObject::AddIOD(const std::string& path, bool transcode) {
    TransferSyntaxCodec codec(Dictionary);
    DICOMFileReader reader(codec);
    reader.SetStopQuestion(m_Stop);
    const auto dataSet = reader.Load(path.c_str(), kStopBeforePixelData);
    if (dataSet == nullptr || reader.IsDeflated()) throw "CCDRObject::AddIOD: error loading [" + path + "]";
    return AddIOD(path, *dataSet, transcode);
}

std::string CCDRObject::AddIOD(const std::string& path, const DICOMObject& dataSet, bool transcode) {
    Placing placing(m_Root);
    CDRRecord* patient = FindRecord(m_Patients, TextOf(dataSet, tags::PatientID));
    if (patient == nullptr) patient = &Place(placing, std::make_unique<CDRPatientRecord>(this), nullptr, dataSet);
    CDRRecord* study = FindRecord(patient->m_Children, TextOf(dataSet, tags::StudyInstanceUID));
    if (study == nullptr) study = &Place(placing, std::make_unique<CDRStudyRecord>(this), patient, dataSet);
    CDRRecord* series = FindRecord(study->m_Children, TextOf(dataSet, tags::SeriesInstanceUID));
    if (series == nullptr) series = &Place(placing, std::make_unique<CDRSeriesRecord>(this), study, dataSet);
    CDRRecord* leaf = FindRecord(series->m_Children, TextOf(dataSet, tags::SOPInstanceUID));
    if (leaf == nullptr) {
        auto made = CDRImageRecord::Make(this, TextOf(dataSet, tags::SOPClassUID));
        leaf = &Place(placing, std::move(made), series, dataSet);
        leaf->m_SourcePath = path;
        Store(*leaf, path, transcode);
    }
    placing.Keep();
    m_pCurrent = leaf;
    SetProgress(1);
    return leaf->m_Path;
}

// Puts a new record into the tree and gives it its name, and its folder where it is not a file's.
CDRRecord& CCDRObject::Place(Placing& placing, std::unique_ptr<CDRRecord> made, CDRRecord* parent,
                             const DICOMObject& dataSet) {
    CDRRecordList& list = parent != nullptr ? parent->m_Children : m_Patients;
    CDRRecord& record = *made;
    record.SetDDO(parent, dataSet);
    if (parent == nullptr) list.Append(&record);
    made.release();
    placing.Add(list);
    const char letter = record.GetLetter();
    record.m_Number = static_cast<int>(list.GetSize());
    record.m_Path = GetPath(m_Root, parent != nullptr ? parent->m_Path : "", letter,
                            static_cast<unsigned>(record.m_Number), letter != 'I');
    return record;
}

void CCDRObject::Store(CDRRecord& leaf, const std::string& path, bool transcode) {
    const std::string destination = m_Root + "\\" + leaf.m_Path;
    const std::string& syntax = leaf.m_ReferencedSyntax;
    if (!transcode || syntax == kExplicitLittleEndianUid || syntax == kImplicitLittleEndianUid) {
        CopyFile(destination, path);
        return;
    }
    TransferSyntaxCodec codec(Dictionary);
    DICOMFileReader reader(codec);
    reader.SetStopQuestion(m_Stop);
    const auto dataSet = reader.Load(path.c_str());
    if (dataSet == nullptr || !reader.IsComplete()) throw "CCDRObject::AddIOD: error loading [" + path + "]";
    CopyFile(*dataSet, destination);
    leaf.m_ReferencedSyntax = StoredSyntax(leaf.m_ReferencedClass);
}

CDRRecord* CCDRObject::FindRecord(const CDRRecordList& list, const std::string& key) {
    return list.Find(key);
}

std::string CCDRObject::GetPath(const std::string& root, const std::string& folder, char letter, unsigned number,
                                bool create) {
    const std::string parent = root + "\\" + folder;
    if (!platform::IsWritable(parent.c_str())) throw "cannot write to [" + parent + "]";
    char name[16];
    std::snprintf(name, sizeof name, "%c%7.7X", letter, number);
    const std::string& below = folder.empty() ? m_FileRoot : folder;
    std::string path = below.empty() ? name : below + "\\" + name;
    if (!create) return path;
    const std::string whole = root + "\\" + path;
    if (platform::FileExists(whole.c_str())) throw std::string("Destination is not empty");
    if (!platform::CreateFolder(whole.c_str())) throw "Error Creating [" + whole + "]";
    return path;
}

void CCDRObject::CopyFile(const std::string& destination, const std::string& source) {
    if (m_pCopyFunction == nullptr) m_pCopyFunction = platform::FindHardLink();
    if (m_pCopyFunction == nullptr) m_pCopyFunction = MyCopyFunc;
    const bool links = m_pCopyFunction != MyCopyFunc;
    int copied = links ? m_pCopyFunction(destination.c_str(), source.c_str(), nullptr) : 0;
    if (copied == 0) {
        m_pCopyFunction = MyCopyFunc;
        copied = Duplicate(destination.c_str(), source.c_str(), m_Stop);
    }
    if (copied == 0) throw std::string("CCDRObject::CopyFile: Error copying files to DICOMDIR structure");
}

int CCDRObject::MyCopyFunc(const char* destination, const char* source, void* /*attributes*/) {
    return Duplicate(destination, source, {});
}

void CCDRObject::CopyFile(DICOMObject& dataSet, const std::string& destination) {
    const std::string syntax = TextOf(dataSet, tags::TransferSyntaxUID);
    const std::string sopClass = TextOf(dataSet, tags::SOPClassUID);
    if (!CodecManager::Init()) throw std::string("Failed to init compression codecs");
    if (m_pCodecs == nullptr) m_pCodecs = std::make_unique<CodecManager>();
    if (!syntax.empty() && syntax != kImplicitLittleEndianUid && m_pCodecs->Decode(&dataSet) == 0) {
        m_Reason = m_pCodecs->GetError();
        throw std::string("Error decoding object");
    }
    const int mode = StoredSyntax(sopClass) == kImplicitLittleEndianUid ? 2 : 3;
    TransferSyntaxCodec codec(Dictionary);
    if (mode == 3) CompleteTypes(dataSet, Dictionary);
    if (codec.PrepareMetaInformation(&dataSet, mode) == 0) throw std::string("Error encoding object");
    errno = 0;
    if (SaveDICOMFile(destination.c_str(), mode, &dataSet, &codec) == 0) {
        const int reason = errno;
        platform::RemoveFile(destination.c_str());
        throw "Error Creating [" + destination + "]: " + std::generic_category().message(reason);
    }
}

std::string CCDRObject::AddPrivate(CDRRecord::RecordType type, const std::string& path, const std::string& folder) {
    if (m_pCurrent == nullptr) throw std::string("CCDRObject::AddPrivate: No current record");
    if (static_cast<unsigned>(type) >= CDRRecord::RecordTypes) {
        throw std::string("CCDRObject::AddPrivate: Unknown record type");
    }
    const std::string& leaf = m_pCurrent->m_Path;
    const std::size_t separator = leaf.rfind('\\');
    const std::string beside = separator != std::string::npos ? leaf.substr(0, separator) : std::string();
    auto record = std::make_unique<CDRRecord>(this);
    record->m_Number = m_PrivateFiles + 1;
    record->m_SourcePath = path;
    record->m_Path = GetPath(m_Root, folder.empty() ? beside : folder, record->GetLetter(),
                             static_cast<unsigned>(record->m_Number), false);
    std::string name = record->m_Path;
    CopyFile(m_Root + "\\" + name, path);
    m_pCurrent->m_PrivateRecords.Append(record.get());
    record.release();
    ++m_PrivateFiles;
    return name;
}

void CCDRObject::CopyPrivateFile(const CDRRecordList& list, const std::string& folder) {
    if (list.GetSize() == 0) return;
    const std::string made = folder + "PRIVATE";
    const std::string whole = m_Root + "\\" + made;
    if (!platform::CreateFolder(whole.c_str())) throw "Error Creating [" + whole + "]";
    for (std::size_t i = 0; i < list.GetSize(); ++i) {
        const std::string path = GetPath(m_Root, made, 'P', static_cast<unsigned>(i + 1), false);
        CopyFile(m_Root + "\\" + path, list.GetAt(i)->m_SourcePath);
    }
}

bool CCDRObject::WriteCDR(const std::string& name) {
    const std::string path = m_Root + name;
    if (platform::FileExists(path.c_str())) throw path + " already present";
    const auto dataSet = CreateDDO();
    return WriteDDO(m_Root + "\\DICOMDIR", *dataSet);
}

void CCDRObject::DeleteRecordList(CDRRecordList& list) {
    list.Clear();
}
