// What the protocol data units of the DICOM upper layer have in common (PS3.8 9.3).
#pragma once

#include "../stream/Buffer.h"

#include <cstdint>
#include <cstring>
#include <string_view>

/// The first byte of a PDU (PS3.8 9.3.1).
enum PduType : std::uint8_t {
    kAssociateRQ = 0x01,
    kAssociateAC = 0x02,
    kAssociateRJ = 0x03,
    kPDataTF = 0x04,
    kReleaseRQ = 0x05,
    kReleaseRP = 0x06,
    kAbortRQ = 0x07
};

/// The six bytes at the beginning of every PDU: type, a reserved byte, and the length in big-endian order.
///
/// Each PDU class has two operations, which return 1, or 0 on failure. `WritePDU` writes the whole PDU into a buffer
/// and flushes it. `ReadPDU` reads what follows the type byte, which the caller has read already and hands in; after a
/// failure the buffer stands somewhere inside the PDU. A length inside a PDU is refused where it reaches beyond the
/// PDU, and a PDU where it is longer than the limit of its class.
struct PduHeader {
    explicit PduHeader(std::uint8_t type) : m_Type(type) {}

    std::uint8_t m_Type;
    std::uint8_t m_Reserved1 = 0;
    std::uint32_t m_Length = 0;  ///< bytes of the PDU behind this field

    bool WriteHeader(Buffer& buffer) const;
    /// Reads the header behind the type byte, which is handed in.
    bool ReadHeader(Buffer& buffer, std::uint8_t type);
};

/// A UID in a field of 64 characters, filled with zero bytes.
class UidField {
public:
    UidField() = default;
    UidField(std::string_view uid) { Set(uid); }

    /// Characters beyond the 64th are dropped.
    void Set(std::string_view uid) {
        std::memset(m_Text, 0, sizeof m_Text);
        uid.copy(m_Text, sizeof m_Text);
    }
    std::string_view Get() const {
        const std::string_view all(m_Text, sizeof m_Text);
        return all.substr(0, all.find('\0'));
    }
    bool operator==(const UidField& other) const { return Get() == other.Get(); }

    char m_Text[64] = {};
};
