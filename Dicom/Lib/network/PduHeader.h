// What the protocol data units of the DICOM upper layer have in common (PS3.8 9.3).
#pragma once

#include "../stream/Buffer.h"

#include <cstdint>
#include <cstring>
#include <string_view>

enum PduType : std::uint8_t {
    kAssociateRQ = 0x01,
    kAssociateAC = 0x02,
    kAssociateRJ = 0x03,
    kPDataTF = 0x04,
    kReleaseRQ = 0x05,
    kReleaseRP = 0x06,
    kAbortRQ = 0x07
};

/// Every PDU begins so; all numbers are big endian. Each class writes itself whole into a buffer (`WritePDU`, which then
/// flushes) and reads what follows the type byte, which the dispatcher has taken (`ReadPDU`). Results are 1 and 0; a
/// read that returns 0 leaves the buffer somewhere inside the PDU. Lengths are believed only within what is left of the
/// PDU, and a PDU only up to its limit.
struct PduHeader {
    explicit PduHeader(std::uint8_t type) : m_Type(type) {}

    std::uint8_t m_Type;
    std::uint8_t m_Reserved1 = 0;
    std::uint32_t m_Length = 0;  ///< of what follows it

    bool WriteHeader(Buffer& buffer) const;
    /// All but the type, which is handed in.
    bool ReadHeader(Buffer& buffer, std::uint8_t type);
};

/// A UID in a field of 64 characters, filled with zero bytes.
class UidField {
public:
    UidField() = default;
    UidField(std::string_view uid) { Set(uid); }

    /// What is longer than 64 characters is cut off.
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
