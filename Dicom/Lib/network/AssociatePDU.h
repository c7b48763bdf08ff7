// The PDUs that open an association: A-ASSOCIATE-RQ, -AC and -RJ (PS3.8 9.3.2 to 9.3.4, annex D; PS3.7 annex D.3).
#pragma once

#include "../syntax/TransferSyntaxTable.h"
#include "PduHeader.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::string_view kApplicationContextUid = "1.2.840.10008.3.1.1.1";

/// Limits on what is read. Beyond the first two the PDU is refused; of transfer syntaxes and roles, the first 128 count.
inline constexpr std::uint32_t kLargestAssociatePdu = 1u << 20;
inline constexpr std::size_t kMostContexts = 128;
inline constexpr std::size_t kMostSyntaxes = 128;

/// What is proposed: an abstract syntax (a SOP class) in any of several transfer syntaxes. The number is odd.
struct ProposedContext {
    std::uint8_t id = 0;
    UidField abstractSyntax;
    std::vector<UidField> transferSyntaxes;
};

enum ContextResult : std::uint8_t {
    kContextAccepted = 0,
    kContextUserRejects = 1,
    kContextNoReason = 2,
    kContextAbstractSyntaxNotSupported = 3,
    kContextTransferSyntaxesNotSupported = 4
};

/// What became of a proposed context. The transfer syntax counts only where it was accepted.
struct AnsweredContext {
    std::uint8_t id = 0;
    std::uint8_t result = kContextAccepted;
    UidField transferSyntax;
};

/// Which roles the requestor may play for a SOP class (PS3.7 D.3.3.4).
struct RoleSelection {
    UidField sopClass;
    std::uint8_t scuRole = 0;
    std::uint8_t scpRole = 0;
};

/// User information (PS3.8 D.1, PS3.7 D.3.3). Items of other kinds (extended negotiation, user identity) are skipped.
struct UserInformation {
    std::uint32_t maximumLength = 0;  ///< of the P-DATA PDUs that the sender will take; 0: any
    UidField implementationClass;
    std::string implementationVersion;  ///< at most 16 characters
    bool hasWindow = false;             ///< asynchronous operations window, 0 being any number
    std::uint16_t operationsInvoked = 1;
    std::uint16_t operationsPerformed = 1;
    std::vector<RoleSelection> roles;
};

/// What request and acceptance share. AE titles are without the blanks that fill them.
struct AssociateFields {
    std::uint16_t m_ProtocolVersion = 1;
    std::uint16_t m_Reserved2 = 0;
    std::string m_CalledAETitle;
    std::string m_CallingAETitle;
    std::array<unsigned char, 32> m_Reserved3{};  ///< an acceptance gives back what the request had there
    UidField m_ApplicationContext{kApplicationContextUid};
    UserInformation m_UserInformation;

    AssociateFields();
};

class AAssociateRQ : public PduHeader, public AssociateFields {
public:
    AAssociateRQ() : PduHeader(kAssociateRQ) {}

    /// What is proposed where nothing else is said.
    UidField m_TransferSyntax{kImplicitLittleEndianUid};
    std::vector<ProposedContext> m_Contexts;

    /// Adds a context with the next free number: returned; 0 when 128 are there. Without syntaxes `m_TransferSyntax`.
    std::uint8_t Propose(std::string_view abstractSyntax, const std::vector<std::string>& transferSyntaxes = {});

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

class AAssociateAC : public PduHeader, public AssociateFields {
public:
    AAssociateAC() : PduHeader(kAssociateAC) {}

    std::vector<AnsweredContext> m_Contexts;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

enum RejectResult : std::uint8_t { kRejectedPermanent = 1, kRejectedTransient = 2 };
enum RejectSource : std::uint8_t { kRejectUser = 1, kRejectProviderAcse = 2, kRejectProviderPresentation = 3 };
/// Reasons count for the source in front of them.
enum RejectReason : std::uint8_t {
    kRejectUserNoReason = 1,
    kRejectUserApplicationContext = 2,
    kRejectUserCallingTitle = 3,
    kRejectUserCalledTitle = 7,
    kRejectAcseNoReason = 1,
    kRejectAcseProtocolVersion = 2,
    kRejectPresentationCongestion = 1,
    kRejectPresentationLocalLimit = 2
};

class AAssociateRJ : public PduHeader {
public:
    AAssociateRJ() : PduHeader(kAssociateRJ) {}

    std::uint8_t m_Reserved2 = 0;
    std::uint8_t m_Result = kRejectedPermanent;
    std::uint8_t m_Source = kRejectUser;
    std::uint8_t m_Reason = kRejectUserNoReason;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);

    /// Such as "rejected (permanent) by the service user: calling AE title not recognized".
    std::string GetText() const;
};
