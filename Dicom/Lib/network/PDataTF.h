// The PDU that carries messages: P-DATA-TF (PS3.8 9.3.5, annex E).
#pragma once

#include "PduHeader.h"

#include <cstddef>

/// A P-DATA PDU: a run of presentation data values (PDVs), each a piece of a command or of a data set.
///
/// Nothing is held: a PDU is read by its header (`ReadPDU`), then by the header of one PDV after the other (`ReadPDV`),
/// of which the caller reads `m_DataLength` bytes from the buffer itself. `WritePDU` writes a PDU with one PDV.
///
/// With the environment variable "DCM_DUMP_PDATA" set, the fields of PDUs go to the dump log.
class PDataTF : public PduHeader {
public:
    /// Bytes in front of the data of a PDU with one PDV: PDU header, PDV length, context, control header.
    static constexpr std::size_t kHeadBytes = 12;
    /// The bytes of it that count towards the maximum length (PS3.8 D.1).
    static constexpr std::uint32_t kOverhead = 6;

    /// Bits of the message control header.
    static constexpr std::uint8_t kCommand = 1;
    static constexpr std::uint8_t kLast = 2;

    PDataTF();

    std::uint32_t m_PDVLength = 0;  ///< context, control header and data
    std::uint8_t m_ContextID = 0;
    std::uint8_t m_ControlHeader = 0;
    std::uint32_t m_DataLength = 0;

    /// The largest length that is read; 0: any. To be set to what the association request or acceptance said.
    std::uint32_t m_LengthLimit = 0;

    int WritePDU(Buffer& buffer, std::uint8_t context, std::uint8_t control, const void* data, std::uint32_t count);
    int ReadPDU(Buffer& buffer, std::uint8_t type);

    /// Whether the PDU has another PDV.
    bool HasPDV() const { return m_Left > 0; }
    int ReadPDV(Buffer& buffer);
    /// Forgets what is left of a PDU: another connection begins.
    void ForgetPDU() { m_Left = 0; }

    /// Writes the `kHeadBytes` bytes that stand in front of `count` bytes of data to `place`.
    static void PutHead(unsigned char* place, std::uint8_t context, std::uint8_t control, std::uint32_t count);

    /// Writes such a header to the dump log.
    static void DumpHead(const char* verb, std::uint8_t context, std::uint8_t control, std::uint32_t count);

private:
    void Dump(const char* verb) const;

    std::uint32_t m_Left = 0;
};
