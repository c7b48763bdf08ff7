// The PDUs that end an association: A-RELEASE-RQ and -RP, A-ABORT (PS3.8 9.3.6 to 9.3.8).
#pragma once

#include "PduHeader.h"

#include <string>

/// Asks for the release of an association. `WritePDU` and `ReadPDU` are as `PduHeader` says; a length other than 4 is
/// refused.
class AReleaseRQ : public PduHeader {
public:
    AReleaseRQ() : PduHeader(kReleaseRQ) {}

    std::uint32_t m_Reserved2 = 0;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

/// Agrees to a release; there is no other answer.
class AReleaseRP : public PduHeader {
public:
    AReleaseRP() : PduHeader(kReleaseRP) {}

    std::uint32_t m_Reserved2 = 0;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

/// Who ends the association (PS3.8 9.3.8).
enum AbortSource : std::uint8_t { kAbortUser = 0, kAbortProvider = 2 };
/// Why; an abort by the user always has 0.
enum AbortReason : std::uint8_t {
    kAbortNoReason = 0,
    kAbortUnrecognizedPdu = 1,
    kAbortUnexpectedPdu = 2,
    kAbortUnrecognizedParameter = 4,
    kAbortUnexpectedParameter = 5,
    kAbortInvalidParameter = 6
};

/// Ends an association at once; either side may send it at any time, and there is no answer.
class AAbortRQ : public PduHeader {
public:
    AAbortRQ() : PduHeader(kAbortRQ) {}

    std::uint16_t m_Reserved2 = 0;
    std::uint8_t m_Source = kAbortUser;
    std::uint8_t m_Reason = kAbortNoReason;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);

    /// The abort in words, such as "aborted by the service provider: unexpected PDU".
    std::string GetText() const;
};
