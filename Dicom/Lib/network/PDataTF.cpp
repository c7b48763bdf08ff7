#include "PDataTF.h"

#include "Dicom/Lib/syntax/DiagnosticDump.h"
#include "base/Bytes.h"
#include "platform/Environment.h"

namespace {

constexpr std::uint32_t kPdvLengthBytes = 4;
constexpr std::uint32_t kPdvHeadBytes = 2;  // context and control header

void StoreBig(unsigned char* place, std::uint32_t value) {
    platform::StoreLittle(place, platform::SwapBytes(value));
}

void DumpFields(const char* verb, std::uint32_t length, std::uint32_t pdvLength, unsigned context, unsigned control) {
    Trace(kDumpPData, "%s PDataTF (0x04) Length[4]=%u PDVLength[4]=%u ContextID[1]=%u ControlHeader[1]=%2.2X\n", verb,
          static_cast<unsigned>(length), static_cast<unsigned>(pdvLength), context, control);
}

}  // namespace

PDataTF::PDataTF() : PduHeader(kPDataTF) {
    bool dumped = false;
    platform::GetEnvironment("DCM_DUMP_PDATA", &dumped);
    if (dumped) SetDebugFlag(kDumpPData, true);
}

void PDataTF::PutHead(unsigned char* place, std::uint8_t context, std::uint8_t control, std::uint32_t count) {
    place[0] = kPDataTF;
    place[1] = 0;
    StoreBig(place + 2, count + kOverhead);
    StoreBig(place + 6, count + kPdvHeadBytes);
    place[10] = context;
    place[11] = control;
}

void PDataTF::Dump(const char* verb) const {
    if (IsDebugFlagOn(kDumpPData)) DumpFields(verb, m_Length, m_PDVLength, m_ContextID, m_ControlHeader);
}

void PDataTF::DumpHead(const char* verb, std::uint8_t context, std::uint8_t control, std::uint32_t count) {
    if (IsDebugFlagOn(kDumpPData)) DumpFields(verb, count + kOverhead, count + kPdvHeadBytes, context, control);
}

int PDataTF::WritePDU(Buffer& buffer, std::uint8_t context, std::uint8_t control, const void* data,
                      std::uint32_t count) {
    m_Type = kPDataTF;
    m_Length = count + kOverhead;
    m_PDVLength = count + kPdvHeadBytes;
    m_ContextID = context;
    m_ControlHeader = control;
    m_DataLength = count;
    unsigned char head[kHeadBytes];
    PutHead(head, context, control, count);
    const bool written = buffer.Write(head, sizeof head) && buffer.Write(data, count) && buffer.Flush();
    Dump("Writing");
    return written ? 1 : 0;
}

int PDataTF::ReadPDU(Buffer& buffer, std::uint8_t type) {
    m_Left = 0;
    if (!ReadHeader(buffer, type)) return 0;
    if (m_Length < kPdvLengthBytes + kPdvHeadBytes || (m_LengthLimit != 0 && m_Length > m_LengthLimit)) return 0;
    m_Left = m_Length;
    return 1;
}

int PDataTF::ReadPDV(Buffer& buffer) {
    if (m_Left < kPdvLengthBytes + kPdvHeadBytes || !buffer.ReadUINT32(m_PDVLength)) return 0;
    m_Left -= kPdvLengthBytes;
    if (m_PDVLength < kPdvHeadBytes || m_PDVLength > m_Left) return 0;
    if (!buffer.ReadUINT8(m_ContextID) || !buffer.ReadUINT8(m_ControlHeader)) return 0;
    m_Left -= m_PDVLength;
    m_DataLength = m_PDVLength - kPdvHeadBytes;
    Dump("Reading");
    return 1;
}
