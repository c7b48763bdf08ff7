#include "MediumProfile.h"

#include "../core/Error.h"
#include "../core/NearestWord.h"
#include "Medium.h"

#include "media/CCDRObject.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace korvane {

namespace {

constexpr std::string_view kRtDoseUid = "1.2.840.10008.5.1.4.1.1.481.2";

enum class Family { Plain, Jpeg, Jpeg2000 };

constexpr std::pair<const char*, Family> kProfiles[] = {
    {"STD-GEN-CD", Family::Plain},         {"STD-GEN-DVD-RAM", Family::Plain},    {"STD-GEN-DVD-JPEG", Family::Jpeg},
    {"STD-GEN-DVD-J2K", Family::Jpeg2000}, {"STD-GEN-USB-JPEG", Family::Jpeg},    {"STD-GEN-USB-J2K", Family::Jpeg2000},
    {"STD-GEN-MMC-JPEG", Family::Jpeg},    {"STD-GEN-MMC-J2K", Family::Jpeg2000}, {"STD-GEN-CF-JPEG", Family::Jpeg},
    {"STD-GEN-CF-J2K", Family::Jpeg2000},  {"STD-GEN-SD-JPEG", Family::Jpeg},     {"STD-GEN-SD-J2K", Family::Jpeg2000},
};

std::vector<std::string_view> SyntaxesOf(Family family) {
    if (family == Family::Jpeg) return {kLosslessJpegUid, "1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.4.51"};
    if (family == Family::Jpeg2000) return {"1.2.840.10008.1.2.4.90", "1.2.840.10008.1.2.4.91"};
    return {};
}

// Values that the directory must have and that nobody may invent.
constexpr std::pair<Tag, const char*> kNeeded[] = {
    {tags::StudyDate, "Study Date"}, {tags::StudyTime, "Study Time"}, {tags::Modality, "Modality"}};

// Numbers that tell records of one parent apart, where files have none.
constexpr std::pair<const char*, Tag> kNumbers[] = {{"STUDY", tags::StudyID}, {"SERIES", tags::SeriesNumber}};

void SetType(const DICOMObject& record, Tag tag, std::uint16_t typeCode) {
    if (VR* const element = FindElement(record, tag)) element->m_TypeCode = typeCode;
}

// PS3.5 9.1: a UID of odd length ends with a zero byte.
void PadUids(const DICOMObject& record) {
    for (VR* element = record.GetFirst(); element != nullptr; element = record.GetNext(element)) {
        const bool isUid =
            element->m_TypeCode == TypeCode("UI") && element->m_pData != nullptr && element->m_Length > 0;
        if (isUid && element->m_pData[element->m_Length - 1] == ' ') element->m_pData[element->m_Length - 1] = 0;
    }
}

}  // namespace

std::vector<std::string> GetMediumProfiles() {
    std::vector<std::string> names;
    for (const auto& [name, family] : kProfiles) names.emplace_back(name);
    return names;
}

MediumProfile::MediumProfile(const std::string& name) : m_Name(name) {
    if (name.empty()) return;
    const auto* const found =
        std::find_if(std::begin(kProfiles), std::end(kProfiles), [&](const auto& row) { return row.first == name; });
    if (found == std::end(kProfiles)) {
        const std::string near = NearestWord(name, GetMediumProfiles());
        throw Error(ErrorKind::WrongArgument,
                    name + ": no such profile" + (near.empty() ? "" : "; did you mean " + near + "?"));
    }
    m_Compressed = SyntaxesOf(found->second);
}

bool MediumProfile::Allows(std::string_view transferSyntax) const {
    return m_Name.empty() || transferSyntax == kExplicitLittleEndianUid ||
           std::find(m_Compressed.begin(), m_Compressed.end(), transferSyntax) != m_Compressed.end();
}

std::string MediumProfile::FaultOf(const DICOMObject& dataSet) const {
    if (m_Name.empty()) return {};
    for (const auto& [tag, name] : kNeeded) {
        if (TextOf(dataSet, tag).empty())
            return std::string("it has no ") + name + ", which the directory of " + m_Name + " must tell";
    }
    return {};
}

void MediumProfile::Apply(DirectoryTree& tree) const {
    SetType(tree.GetHead(), tags::FileSetID, TypeCode("CS"));
    tree.ForEach([](DirectoryTree::Node& node, std::size_t, std::size_t number) {
        DICOMObject& record = *node.record;
        const std::string type = FindText(record, tags::DirectoryRecordType);
        if (TextOf(record, tags::ReferencedSOPClassUIDInFile) == kRtDoseUid && type != "RT DOSE")
            PutText(record, tags::DirectoryRecordType, "RT DOSE");
        SetType(record, tags::RTPlanLabel, TypeCode("SH"));
        for (const auto& [kind, tag] : kNumbers) {
            if (type == kind && TextOf(record, tag).empty()) PutText(record, tag, std::to_string(number));
        }
        const bool isLeaf = !FindText(record, tags::ReferencedFileID).empty();
        if (isLeaf && TextOf(record, tags::InstanceNumber).empty())
            PutText(record, tags::InstanceNumber, std::to_string(number));
        PadUids(record);
    });
}

}  // namespace korvane
