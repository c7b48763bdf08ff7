#include "Part10Stream.h"

#include "../core/Error.h"
#include "../dataset/DataSet.h"
#include "../dataset/Toolkit.h"

#include "Dicom/Lib/network/AcceptPolicy.h"
#include "Dicom/Lib/network/DimseCommand.h"

#include <cstddef>
#include <span>

namespace korvane {

namespace {

constexpr std::size_t kPreamble = 132;
constexpr std::size_t kLengthElement = 12;  // (0002,0000) UL, explicit little endian
constexpr std::size_t kMostHead = std::size_t{1} << 20;
constexpr std::string_view kLengthHeader("\x02\x00\x00\x00UL\x04\x00", 8);

}  // namespace

void Part10Stream::Refuse(std::uint16_t status, const std::string& why) {
    m_Status = status;
    m_Why = why;
    m_bBegun = true;
}

// Whether the meta information has come, and the rest of `m_Head` is the data set.
bool Part10Stream::TakeHead() {
    if (m_Head.size() < kPreamble + kLengthElement) return false;
    const std::string_view head = m_Head;
    const std::string_view length = head.substr(kPreamble, kLengthElement);
    if (head.substr(kPreamble - 4, 4) != "DICM" || !length.starts_with(kLengthHeader)) {
        Refuse(kStatusCannotUnderstand, "not a DICOM file with meta information");
        return true;
    }
    std::size_t size = kPreamble + kLengthElement;
    std::size_t group = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        group |= static_cast<std::size_t>(static_cast<unsigned char>(length[8 + i])) << (8 * i);
    }
    if (group > kMostHead) {
        Refuse(kStatusCannotUnderstand, "meta information of more than 1 MB");
        return true;
    }
    size += group;
    if (head.size() < size) return false;
    try {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(head.data());
        const DataSet meta = DataSet::Parse(std::span(bytes, size));
        m_Request = {meta.Text(tags::MediaStorageSOPClassUID), meta.Text(tags::MediaStorageSOPInstanceUID),
                     meta.Text(tags::TransferSyntaxUID), ""};
    } catch (const Error& error) {
        Refuse(kStatusCannotUnderstand, error.what());
        return true;
    }
    m_Head.erase(0, size);
    Begin();
    return true;
}

void Part10Stream::Begin() {
    m_bBegun = true;
    const std::string& syntax = m_Request.transferSyntax;
    const bool isDeflated = IsDeflatedTransferSyntax(syntax);
    if (!IsUid(m_Request.sopClass)) return Refuse(kStatusClassNotSupported, "no SOP class");
    if (m_Request.sopInstance.empty()) return Refuse(kStatusInvalidInstance, "no SOP instance");
    if (!isDeflated && !IsStorableSyntax(syntax)) return Refuse(kStatusCannotUnderstand, "transfer syntax " + syntax);
    if (!isDeflated) m_Walker.emplace(FindTransferSyntax(syntax, kExplicitLittleEndian));
    if (const std::uint16_t status = m_Sink.Begin(m_Request); status != 0) Refuse(status, "cannot be written");
}

void Part10Stream::Feed(std::string_view bytes) {
    if (!m_bBegun) {
        m_Head += bytes;
        if (!TakeHead()) return;
        bytes = m_Head;
    }
    if (m_Status != kStatusSuccess || bytes.empty()) return;
    const bool isSound = !m_Walker || m_Walker->Feed(bytes.data(), bytes.size());
    if (!isSound) {
        Refuse(kStatusCannotUnderstand, "the data set is damaged");
    } else if (const std::uint16_t status = m_Sink.Write(bytes.data(), bytes.size()); status != 0) {
        Refuse(status, "cannot be written");
    }
    m_Head.clear();
}

std::uint16_t Part10Stream::End() {
    if (!m_bBegun) Refuse(kStatusCannotUnderstand, "ends within its meta information");
    if (m_Status == kStatusSuccess && m_Walker) m_Status = CheckDataSet(*m_Walker, m_Request);
    if (m_Status == kStatusSuccess) {
        m_Status = m_Sink.End();
        if (m_Status != kStatusSuccess) m_Why = "cannot be stored";
    } else {
        m_Sink.Discard();
        if (m_Why.empty()) m_Why = "the data set is not what its meta information says, damaged, or cut off";
    }
    m_Sink.Answered(m_Request, m_Status, m_Why);
    const std::uint16_t status = m_Status;
    Discard();
    return status;
}

void Part10Stream::Discard() {
    m_Sink.Discard();
    m_Head.clear();
    m_bBegun = false;
    m_Request = {};
    m_Walker.reset();
    m_Status = kStatusSuccess;
    m_Why.clear();
}

}  // namespace korvane
