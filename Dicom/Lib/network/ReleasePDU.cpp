#include "ReleasePDU.h"

#include "Dicom/Lib/syntax/DiagnosticDump.h"

namespace {

constexpr std::uint32_t kBodyBytes = 4;

bool WriteRelease(Buffer& buffer, PduHeader& pdu, std::uint32_t reserved) {
    pdu.m_Length = kBodyBytes;
    return pdu.WriteHeader(buffer) && buffer.WriteUINT32(reserved) && buffer.Flush();
}

bool ReadRelease(Buffer& buffer, PduHeader& pdu, std::uint8_t type, std::uint32_t& reserved) {
    return pdu.ReadHeader(buffer, type) && pdu.m_Length == kBodyBytes && buffer.ReadUINT32(reserved);
}

void DumpFields(const PduHeader& pdu, std::uint32_t reserved) {
    Trace(kDumpPData, "\tReserved1[1]=%2.2X\n", static_cast<unsigned>(pdu.m_Reserved1));
    Trace(kDumpPData, "\tLength[4]=%d\n", static_cast<int>(pdu.m_Length));
    Trace(kDumpPData, "\tReserved2[1]=%2.2X\n", static_cast<unsigned>(reserved));
}

// The banner's first line has no line end: hosts depend on the log as it is.
void DumpWithBanner(const char* title, const PduHeader& pdu, std::uint32_t reserved) {
    if (!IsDebugFlagOn(kDumpPData)) return;
    Trace(kDumpPduBanner, "------------------------------------------------");
    Trace(kDumpPduBanner, title, static_cast<unsigned>(pdu.m_Type));
    DumpFields(pdu, reserved);
    Trace(kDumpPduBanner, "-----------------------------------------------------\n");
}

const char* AbortReasonText(std::uint8_t reason) {
    switch (reason) {
    case kAbortNoReason: return "no reason given";
    case kAbortUnrecognizedPdu: return "unrecognized PDU";
    case kAbortUnexpectedPdu: return "unexpected PDU";
    case kAbortUnrecognizedParameter: return "unrecognized PDU parameter";
    case kAbortUnexpectedParameter: return "unexpected PDU parameter";
    case kAbortInvalidParameter: return "invalid PDU parameter value";
    default: return nullptr;
    }
}

}  // namespace

int AReleaseRQ::WritePDU(Buffer& buffer) {
    const bool written = WriteRelease(buffer, *this, m_Reserved2);
    DumpWithBanner("Writing  AReleaseRQ (0x05) Type=%2.2X\n", *this, m_Reserved2);
    return written ? 1 : 0;
}

int AReleaseRQ::ReadPDU(Buffer& buffer, std::uint8_t type) {
    const bool read = ReadRelease(buffer, *this, type, m_Reserved2);
    if (read) DumpWithBanner("Reading  AReleaseRQ (0x05) Type=%2.2X\n", *this, m_Reserved2);
    return read ? 1 : 0;
}

int AReleaseRP::WritePDU(Buffer& buffer) {
    const bool written = WriteRelease(buffer, *this, m_Reserved2);
    DumpWithBanner("Writing  AReleaseRP (0x06) Type=%2.2X\n", *this, m_Reserved2);
    return written ? 1 : 0;
}

int AReleaseRP::ReadPDU(Buffer& buffer, std::uint8_t type) {
    Trace(kDumpPData, "---------------------------------------------------------");
    Trace(kDumpPData, "Reading AReleaseRP (0x06) Type=02.2X\n");  // no "%" in it: hosts depend on the log as it is
    if (!ReadRelease(buffer, *this, type, m_Reserved2)) return 0;
    DumpFields(*this, m_Reserved2);
    Trace(kDumpPData, "---------------------------------------------\n");
    return 1;
}

int AAbortRQ::WritePDU(Buffer& buffer) {
    m_Length = kBodyBytes;
    const bool written = WriteHeader(buffer) && buffer.WriteUINT16(m_Reserved2) && buffer.WriteUINT8(m_Source) &&
                         buffer.WriteUINT8(m_Reason) && buffer.Flush();
    Trace(kDumpPData, "Writing AAbortRQ (0x07) Source=%u Reason=%u\n", m_Source, m_Reason);
    return written ? 1 : 0;
}

int AAbortRQ::ReadPDU(Buffer& buffer, std::uint8_t type) {
    const bool read = ReadHeader(buffer, type) && m_Length == kBodyBytes && buffer.ReadUINT16(m_Reserved2) &&
                      buffer.ReadUINT8(m_Source) && buffer.ReadUINT8(m_Reason);
    if (read) Trace(kDumpPData, "Reading AAbortRQ (0x07) Source=%u Reason=%u\n", m_Source, m_Reason);
    return read ? 1 : 0;
}

std::string AAbortRQ::GetText() const {
    if (m_Source == kAbortUser) return "aborted by the service user";
    const char* const reason = AbortReasonText(m_Reason);
    const std::string who = m_Source == kAbortProvider ? "aborted by the service provider: "
                                                       : "aborted by source " + std::to_string(m_Source) + ": ";
    return who + (reason != nullptr ? reason : "reason " + std::to_string(m_Reason));
}
