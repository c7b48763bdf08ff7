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

/// Limits on PDUs that are read. A PDU of more bytes or more presentation contexts is refused. Of more transfer
/// syntaxes in a context, or more roles, the first 128 are kept.
inline constexpr std::uint32_t kLargestAssociatePdu = 1u << 20;
inline constexpr std::size_t kMostContexts = 128;
inline constexpr std::size_t kMostSyntaxes = 128;

/// A presentation context as it is proposed (PS3.8 9.3.2.2): an abstract syntax (a SOP class) in any of several
/// transfer syntaxes. `id` is odd, 1 to 255.
struct ProposedContext {
    std::uint8_t id = 0;
    UidField abstractSyntax;
    std::vector<UidField> transferSyntaxes;
};

/// The acceptor's answer to a proposed context (PS3.8 9.3.3.2).
enum ContextResult : std::uint8_t {
    kContextAccepted = 0,
    kContextUserRejects = 1,
    kContextNoReason = 2,
    kContextAbstractSyntaxNotSupported = 3,
    kContextTransferSyntaxesNotSupported = 4
};

/// A presentation context as it is answered. The transfer syntax has a meaning only where `result` is
/// `kContextAccepted`.
struct AnsweredContext {
    std::uint8_t id = 0;
    std::uint8_t result = kContextAccepted;
    UidField transferSyntax;
};

/// The roles of the requestor for a SOP class (PS3.7 D.3.3.4): proposed in a request, accepted in an answer; 1 or 0
/// each.
struct RoleSelection {
    UidField sopClass;
    std::uint8_t scuRole = 0;
    std::uint8_t scpRole = 0;
};

/// User information (PS3.8 D.1, PS3.7 D.3.3). Items of other kinds (extended negotiation, user identity) are skipped.
struct UserInformation {
    std::uint32_t maximumLength = 0;  ///< bytes; longest P-DATA PDU that the sender takes; 0: any
    UidField implementationClass;
    std::string implementationVersion;  ///< at most 16 characters
    bool hasWindow = false;             ///< whether the two below were there (PS3.7 D.3.3.3); 0 in them: any number
    std::uint16_t operationsInvoked = 1;
    std::uint16_t operationsPerformed = 1;
    std::vector<RoleSelection> roles;
};

/// The fields that request and acceptance share. AE titles are without the blanks that pad them to 16 characters.
struct AssociateFields {
    std::uint16_t m_ProtocolVersion = 1;
    std::uint16_t m_Reserved2 = 0;
    std::string m_CalledAETitle;
    std::string m_CallingAETitle;
    std::array<unsigned char, 32> m_Reserved3{};  ///< an acceptance repeats the bytes of the request
    UidField m_ApplicationContext{kApplicationContextUid};
    UserInformation m_UserInformation;

    AssociateFields();
};

/// Asks for an association (PS3.8 9.3.2). `WritePDU` and `ReadPDU` are as `PduHeader` says.
class AAssociateRQ : public PduHeader, public AssociateFields {
public:
    AAssociateRQ() : PduHeader(kAssociateRQ) {}

    /// What `Propose` proposes where it is given no transfer syntaxes.
    UidField m_TransferSyntax{kImplicitLittleEndianUid};
    std::vector<ProposedContext> m_Contexts;

    /// Adds a context and returns its number, the next free one; 0 when there are 128 already. Without transfer
    /// syntaxes `m_TransferSyntax` is proposed.
    std::uint8_t Propose(std::string_view abstractSyntax, const std::vector<std::string>& transferSyntaxes = {});

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

/// Accepts an association, with an answer to each proposed context (PS3.8 9.3.3).
class AAssociateAC : public PduHeader, public AssociateFields {
public:
    AAssociateAC() : PduHeader(kAssociateAC) {}

    std::vector<AnsweredContext> m_Contexts;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);
};

/// How an association is rejected (PS3.8 9.3.4): whether another try may succeed, who rejects it, and why.
enum RejectResult : std::uint8_t { kRejectedPermanent = 1, kRejectedTransient = 2 };
enum RejectSource : std::uint8_t { kRejectUser = 1, kRejectProviderAcse = 2, kRejectProviderPresentation = 3 };
/// A number means something else for each source; the name says for which one.
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

/// Rejects an association (PS3.8 9.3.4); the requestor then closes the connection.
class AAssociateRJ : public PduHeader {
public:
    AAssociateRJ() : PduHeader(kAssociateRJ) {}

    std::uint8_t m_Reserved2 = 0;
    std::uint8_t m_Result = kRejectedPermanent;
    std::uint8_t m_Source = kRejectUser;
    std::uint8_t m_Reason = kRejectUserNoReason;

    int WritePDU(Buffer& buffer);
    int ReadPDU(Buffer& buffer, std::uint8_t type);

    /// The rejection in words, such as "rejected (permanent) by the service user: calling AE title not recognized".
    std::string GetText() const;
};
