#include "CDRRecord.h"

#include "CCDRObject.h"
#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr DRElement kPatient[] = {{tags::PatientName, TypeCode("PN")},
                                  {tags::PatientID, TypeCode("LO")},
                                  {tags::PatientSex, TypeCode("CS")},
                                  {tags::PatientBirthDate, TypeCode("DA")}};
constexpr DRElement kStudy[] = {{tags::StudyInstanceUID, TypeCode("UI")}, {tags::StudyID, TypeCode("SH")},
                                {tags::StudyDate, TypeCode("DA")},        {tags::StudyTime, TypeCode("TM")},
                                {tags::StudyDescription, TypeCode("LO")}, {tags::AccessionNumber, TypeCode("SH")}};
constexpr DRElement kSeries[] = {
    {tags::Modality, TypeCode("CS")}, {tags::SeriesInstanceUID, TypeCode("UI")}, {tags::SeriesNumber, TypeCode("IS")}};
// The leaves' begin with the one that all have.
constexpr DRElement kInstanceNumber = {tags::InstanceNumber, TypeCode("IS")};
constexpr DRElement kImage[] = {kInstanceNumber};
constexpr DRElement kRTDose[] = {kInstanceNumber, {tags::DoseSummationType, TypeCode("CS")}};
constexpr DRElement kRTStructSet[] = {kInstanceNumber,
                                      {tags::StructureSetLabel, TypeCode("SH")},
                                      {tags::StructureSetDate, TypeCode("DA")},
                                      {tags::StructureSetTime, TypeCode("TM")}};
constexpr DRElement kRTPlan[] = {kInstanceNumber,
                                 {tags::RTPlanLabel, TypeCode("CS")},
                                 {tags::RTPlanDate, TypeCode("DA")},
                                 {tags::RTPlanTime, TypeCode("TM")}};
constexpr DRElement kSRDoc[] = {kInstanceNumber,
                                {tags::CompletionFlag, TypeCode("CS")},
                                {tags::VerificationFlag, TypeCode("CS")},
                                {tags::ContentDate, TypeCode("DA")},
                                {tags::ContentTime, TypeCode("TM")},
                                {tags::VerificationDateTime, TypeCode("DT")}};

// Positions of the keys in the tables above.
constexpr std::size_t kPatientKey = 1;
constexpr std::size_t kStudyKey = 0;
constexpr std::size_t kSeriesKey = 1;

bool IsBeyondAscii(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0 || c == '\x1B'; });
}

void Push(DICOMObject& item, const DRElement& element, const std::string& value) {
    item.Push(CCDRObject::CreateVR(GroupOf(element.tag), ElementOf(element.tag), element.typeCode, value));
}

bool HasTextBeyondAscii(const VR& codes) {
    for (std::uint32_t i = 0; i < codes.GetItemCount(); ++i) {
        const DICOMObject& code = *codes.GetItem(i);
        for (const VR* element = code.GetFirst(); element != nullptr; element = code.GetNext(element)) {
            if (IsBeyondAscii(element->GetText())) return true;
        }
    }
    return false;
}

// A code item as it stands in a directory: whatever else a data set may have nested in it stays behind.
std::unique_ptr<DICOMDataObject> CopyCode(const DICOMObject& item) {
    auto copy = std::make_unique<DICOMDataObject>();
    for (const VR* element = item.GetFirst(); element != nullptr; element = item.GetNext(element)) {
        const bool isCode = element->m_Group == 0x0008 && element->m_Element != 0;
        if (!isCode || element->m_pSequence != nullptr || element->m_TypeCode == TypeCode("SQ")) continue;
        VR* const made = element->Clone(true);
        if (made->m_TypeCode == 0) made->m_TypeCode = TypeCode("UN");
        copy->Push(made);
    }
    return copy;
}

std::unique_ptr<VR> CopyCodes(const VR& sequence) {
    auto copy = std::make_unique<VR>(sequence.m_Group, sequence.m_Element, 0, 0);
    copy->m_TypeCode = TypeCode("SQ");
    for (std::uint32_t i = 0; i < sequence.GetItemCount(); ++i) {
        auto item = CopyCode(*sequence.GetItem(i));
        if (copy->AddItem(item.get()) != 0) item.release();
    }
    return copy;
}

}  // namespace

CDRRecord::CDRRecord(CCDRObject* owner) : m_pOwner(owner) {}

CDRRecord::CDRRecord(CCDRObject* owner, const DRElement* elements, std::size_t count)
    : m_pOwner(owner), m_Values(count), m_pElements(elements) {}

CDRRecord::CDRRecord(const CDRRecord& other) : m_pOwner(nullptr) {
    *this = other;
}

CDRRecord& CDRRecord::operator=(const CDRRecord& other) {
    m_pOwner = other.m_pOwner;
    m_Number = other.m_Number;
    m_Path = other.m_Path;
    m_SourcePath = other.m_SourcePath;
    m_ReferencedClass = other.m_ReferencedClass;
    m_ReferencedInstance = other.m_ReferencedInstance;
    m_ReferencedSyntax = other.m_ReferencedSyntax;
    m_ReferencedFileId = other.m_ReferencedFileId;
    m_Values = other.m_Values;
    m_pElements = other.m_pElements;
    m_CharacterSet = other.m_CharacterSet;
    return *this;
}

CDRRecord::~CDRRecord() {
    CCDRObject::DeleteRecordList(m_Children);
    CCDRObject::DeleteRecordList(m_PrivateRecords);
}

std::string CDRRecord::GetTypeText() const {
    return "CDRRECORD";
}

const std::string& CDRRecord::GetKey() const {
    return m_ReferencedInstance;
}

void CDRRecord::SetDDO(CDRRecord* parent, const DICOMObject& dataSet) {
    m_ReferencedSyntax = TextOf(dataSet, tags::TransferSyntaxUID);
    m_ReferencedClass = TextOf(dataSet, tags::SOPClassUID);
    m_ReferencedInstance = TextOf(dataSet, tags::SOPInstanceUID);
    m_ReferencedFileId = TextOf(dataSet, tags::ReferencedFileID);
    for (std::size_t i = 0; i < m_Values.size(); ++i) {
        m_Values[i] = TextOf(dataSet, m_pElements[i].tag);
    }
    if (std::any_of(m_Values.begin(), m_Values.end(), IsBeyondAscii))
        m_CharacterSet = TextOf(dataSet, tags::SpecificCharacterSet);
    if (parent != nullptr) parent->m_Children.Append(this);
}

void CDRRecord::AddToDDO(DICOMObject& item) const {
    Push(item, {tags::DirectoryRecordType, TypeCode("CS")}, GetTypeText());
    if (!m_CharacterSet.empty()) Push(item, {tags::SpecificCharacterSet, TypeCode("CS")}, m_CharacterSet);
    for (std::size_t i = 0; i < m_Values.size(); ++i) Push(item, m_pElements[i], m_Values[i]);
}

char CDRRecord::GetLetter() const {
    return 'R';
}

CDRPatientRecord::CDRPatientRecord(CCDRObject* owner) : CDRRecord(owner, kPatient, std::size(kPatient)) {}
std::string CDRPatientRecord::GetTypeText() const {
    return "PATIENT";
}
const std::string& CDRPatientRecord::GetKey() const {
    return m_Values[kPatientKey];
}
char CDRPatientRecord::GetLetter() const {
    return 'P';
}

CDRStudyRecord::CDRStudyRecord(CCDRObject* owner) : CDRRecord(owner, kStudy, std::size(kStudy)) {}
std::string CDRStudyRecord::GetTypeText() const {
    return "STUDY";
}
const std::string& CDRStudyRecord::GetKey() const {
    return m_Values[kStudyKey];
}
char CDRStudyRecord::GetLetter() const {
    return 'S';
}

CDRSeriesRecord::CDRSeriesRecord(CCDRObject* owner) : CDRRecord(owner, kSeries, std::size(kSeries)) {}
std::string CDRSeriesRecord::GetTypeText() const {
    return "SERIES";
}
const std::string& CDRSeriesRecord::GetKey() const {
    return m_Values[kSeriesKey];
}
char CDRSeriesRecord::GetLetter() const {
    return 'S';
}

CDRImageRecord::CDRImageRecord(CCDRObject* owner) : CDRRecord(owner, kImage, std::size(kImage)) {}
CDRImageRecord::CDRImageRecord(CCDRObject* owner, const DRElement* elements, std::size_t count)
    : CDRRecord(owner, elements, count) {}

std::string CDRImageRecord::GetTypeText() const {
    return "IMAGE";
}

const std::string& CDRImageRecord::GetKey() const {
    return m_ReferencedInstance;
}

void CDRImageRecord::AddToDDO(DICOMObject& item) const {
    // The path's components are the values of the file ID.
    Push(item, {tags::ReferencedFileID, TypeCode("CS")}, m_Path);
    Push(item, {tags::ReferencedSOPClassUIDInFile, TypeCode("UI")}, m_ReferencedClass);
    Push(item, {tags::ReferencedSOPInstanceUIDInFile, TypeCode("UI")}, m_ReferencedInstance);
    Push(item, {tags::ReferencedTransferSyntaxUIDInFile, TypeCode("UI")}, m_ReferencedSyntax);
    CDRRecord::AddToDDO(item);
}

char CDRImageRecord::GetLetter() const {
    return 'I';
}

std::unique_ptr<CDRRecord> CDRImageRecord::Make(CCDRObject* owner, std::string_view sopClass) {
    for (const std::string_view report :
         {"1.2.840.10008.5.1.4.1.1.88.11", "1.2.840.10008.5.1.4.1.1.88.22", "1.2.840.10008.5.1.4.1.1.88.33"}) {
        if (sopClass == report) return std::make_unique<CDRSRDocRecord>(owner);
    }
    if (sopClass == "1.2.840.10008.5.1.4.1.1.481.2") return std::make_unique<CDRRTDoseRecord>(owner);
    if (sopClass == "1.2.840.10008.5.1.4.1.1.481.3") return std::make_unique<CDRRTStructSetRecord>(owner);
    if (sopClass == "1.2.840.10008.5.1.4.1.1.481.5") return std::make_unique<CDRRTPlanRecord>(owner);
    return std::make_unique<CDRImageRecord>(owner);
}

CDRRTDoseRecord::CDRRTDoseRecord(CCDRObject* owner) : CDRImageRecord(owner, kRTDose, std::size(kRTDose)) {}
std::string CDRRTDoseRecord::GetTypeText() const {
    return "RT STRUCTURE SET";
}

CDRRTStructSetRecord::CDRRTStructSetRecord(CCDRObject* owner)
    : CDRImageRecord(owner, kRTStructSet, std::size(kRTStructSet)) {}
std::string CDRRTStructSetRecord::GetTypeText() const {
    return "RT STRUCTURE SET";
}

CDRRTPlanRecord::CDRRTPlanRecord(CCDRObject* owner) : CDRImageRecord(owner, kRTPlan, std::size(kRTPlan)) {}
std::string CDRRTPlanRecord::GetTypeText() const {
    return "RT PLAN";
}

CDRSRDocRecord::CDRSRDocRecord(CCDRObject* owner) : CDRImageRecord(owner, kSRDoc, std::size(kSRDoc)) {}
CDRSRDocRecord::CDRSRDocRecord(const CDRSRDocRecord& other) : CDRImageRecord(other) {
    if (other.m_pConceptName != nullptr) m_pConceptName = CopyCodes(*other.m_pConceptName);
}
CDRSRDocRecord& CDRSRDocRecord::operator=(const CDRSRDocRecord& other) {
    if (this == &other) return *this;
    CDRImageRecord::operator=(other);
    m_pConceptName = other.m_pConceptName != nullptr ? CopyCodes(*other.m_pConceptName) : nullptr;
    return *this;
}
CDRSRDocRecord::~CDRSRDocRecord() = default;

std::string CDRSRDocRecord::GetTypeText() const {
    return "SR DOCUMENT";
}

void CDRSRDocRecord::SetDDO(CDRRecord* parent, const DICOMObject& dataSet) {
    const VR* const conceptName = dataSet.GetVR(tags::ConceptNameCodeSequence);
    if (conceptName == nullptr) throw std::string("CDRSRDocRecord::SetDDO: Concept name sequence missing");
    m_pConceptName = CopyCodes(*conceptName);
    if (HasTextBeyondAscii(*m_pConceptName)) m_CharacterSet = TextOf(dataSet, tags::SpecificCharacterSet);
    CDRImageRecord::SetDDO(parent, dataSet);
}

void CDRSRDocRecord::AddToDDO(DICOMObject& item) const {
    CDRImageRecord::AddToDDO(item);
    if (m_pConceptName != nullptr) item.Push(CopyCodes(*m_pConceptName).release());
}
