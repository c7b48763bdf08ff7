#include "AssociatePDU.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/stream/MemoryBuffer.h"
#include "Dicom/Lib/syntax/DiagnosticDump.h"

#include <algorithm>

namespace {

constexpr std::size_t kTitleBytes = 16;
constexpr std::size_t kVersionBytes = 16;
constexpr std::size_t kReadStep = 64 * 1024;

// Items of the variable part.
enum ItemType : std::uint8_t {
    kApplicationContextItem = 0x10,
    kContextRQItem = 0x20,
    kContextACItem = 0x21,
    kAbstractSyntaxItem = 0x30,
    kTransferSyntaxItem = 0x40,
    kUserInformationItem = 0x50,
    kMaximumLengthItem = 0x51,
    kImplementationClassItem = 0x52,
    kWindowItem = 0x53,
    kRoleItem = 0x54,
    kImplementationVersionItem = 0x55
};

// --- writing ---

void WriteItem(Buffer& out, std::uint8_t type, std::string_view content) {
    out.WriteUINT8(type);
    out.WriteUINT8(0);
    out.WriteUINT16(static_cast<std::uint16_t>(content.size()));
    out.Write(content.data(), content.size());
}

// Writes an item that consists of items: `write` puts them into a buffer, whose length is then known.
template <class Write>
void WriteNested(Buffer& out, std::uint8_t type, Write write) {
    MemoryOutputBuffer inner;
    inner.SetByteOrder(Buffer::kBigEndian);
    write(inner);
    const auto& bytes = inner.GetBytes();
    WriteItem(out, type, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void WriteTitle(Buffer& out, const std::string& title) {
    std::string field = title.substr(0, kTitleBytes);
    field.resize(kTitleBytes, ' ');
    out.Write(field.data(), field.size());
}

void WriteUserInformation(Buffer& out, const UserInformation& user) {
    WriteNested(out, kUserInformationItem, [&](Buffer& items) {
        WriteNested(items, kMaximumLengthItem, [&](Buffer& item) { item.WriteUINT32(user.maximumLength); });
        WriteItem(items, kImplementationClassItem, user.implementationClass.Get());
        if (user.hasWindow) {
            WriteNested(items, kWindowItem, [&](Buffer& item) {
                item.WriteUINT16(user.operationsInvoked);
                item.WriteUINT16(user.operationsPerformed);
            });
        }
        for (const RoleSelection& role : user.roles) {
            WriteNested(items, kRoleItem, [&](Buffer& item) {
                const std::string_view uid = role.sopClass.Get();
                item.WriteUINT16(static_cast<std::uint16_t>(uid.size()));
                item.Write(uid.data(), uid.size());
                item.WriteUINT8(role.scuRole);
                item.WriteUINT8(role.scpRole);
            });
        }
        if (!user.implementationVersion.empty()) {
            WriteItem(items, kImplementationVersionItem,
                      std::string_view(user.implementationVersion).substr(0, kVersionBytes));
        }
    });
}

// Writes header, fixed part and application context; then the presentation contexts, which request and acceptance write
// in their own ways; then the user information.
template <class WriteContexts>
int WriteAssociate(Buffer& buffer, PduHeader& pdu, const AssociateFields& fields, WriteContexts writeContexts) {
    MemoryOutputBuffer body;
    body.SetByteOrder(Buffer::kBigEndian);
    body.WriteUINT16(fields.m_ProtocolVersion);
    body.WriteUINT16(fields.m_Reserved2);
    WriteTitle(body, fields.m_CalledAETitle);
    WriteTitle(body, fields.m_CallingAETitle);
    body.Write(fields.m_Reserved3.data(), fields.m_Reserved3.size());
    WriteItem(body, kApplicationContextItem, fields.m_ApplicationContext.Get());
    writeContexts(body);
    WriteUserInformation(body, fields.m_UserInformation);
    const auto& bytes = body.GetBytes();
    pdu.m_Length = static_cast<std::uint32_t>(bytes.size());
    return pdu.WriteHeader(buffer) && buffer.Write(bytes.data(), bytes.size()) && buffer.Flush() ? 1 : 0;
}

// --- reading ---

// Reads the rest of the PDU. Memory grows with the bytes that arrive, not with the length that the PDU claims.
bool ReadBody(Buffer& buffer, std::uint32_t length, std::vector<unsigned char>& body) {
    if (length > kLargestAssociatePdu) return false;
    while (body.size() < length) {
        const std::size_t have = body.size();
        body.resize(std::min<std::size_t>(length, have + kReadStep));
        if (!buffer.Read(body.data() + have, body.size() - have)) return false;
    }
    return true;
}

// Calls `take(type, length)` for each item up to the end of the buffer or window, in a window of the item's length.
// False when an item reaches beyond it, or `take` says so.
template <class Take>
bool ForEachItem(Buffer& in, Take take) {
    while (in.GetRemaining() > 0) {
        std::uint8_t type;
        std::uint16_t length;
        if (!in.ReadUINT8(type) || !in.Skip(1) || !in.ReadUINT16(length) || length > in.GetRemaining()) return false;
        const Buffer::Window window(in, length);
        if (!take(type)) return false;
    }
    return true;
}

// Reads the rest of the window, at most `longest` characters, and removes padding at its end.
std::string ReadText(Buffer& in, std::size_t longest) {
    std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(longest, in.GetRemaining())), '\0');
    in.Read(text.data(), text.size());
    return text;
}

// A UID; false when it is too long for one.
bool ReadUid(Buffer& in, UidField& uid) {
    if (in.GetRemaining() > sizeof uid.m_Text + 1) return false;  // one more: some peers pad UIDs to even length
    uid.Set(TrimmedUid(ReadText(in, sizeof uid.m_Text)));
    return true;
}

std::string ReadTitle(Buffer& in) {
    std::string title(kTitleBytes, '\0');
    in.Read(title.data(), title.size());
    title.resize(std::min(title.find('\0'), title.size()));
    const std::size_t first = title.find_first_not_of(' ');
    if (first == std::string::npos) return "";
    return title.substr(first, title.find_last_not_of(' ') + 1 - first);
}

bool ReadRole(Buffer& in, RoleSelection& role) {
    std::uint16_t length;
    if (!in.ReadUINT16(length) || length > sizeof role.sopClass.m_Text + 1 || length > in.GetRemaining()) return false;
    {
        const Buffer::Window window(in, length);
        if (!ReadUid(in, role.sopClass)) return false;
    }
    return in.ReadUINT8(role.scuRole) && in.ReadUINT8(role.scpRole);
}

bool ReadUserItem(Buffer& in, std::uint8_t type, UserInformation& user) {
    switch (type) {
    case kMaximumLengthItem: return in.ReadUINT32(user.maximumLength);
    case kImplementationClassItem: return ReadUid(in, user.implementationClass);
    case kImplementationVersionItem: user.implementationVersion = TrimmedUid(ReadText(in, kVersionBytes)); return true;
    case kWindowItem:
        user.hasWindow = true;
        return in.ReadUINT16(user.operationsInvoked) && in.ReadUINT16(user.operationsPerformed);
    case kRoleItem: {
        RoleSelection role;
        if (!ReadRole(in, role)) return false;
        if (user.roles.size() < kMostSyntaxes) user.roles.push_back(role);
        return true;
    }
    default: return true;
    }
}

// Reads the fixed part and the items. Items that are not common to request and acceptance are handed to
// `takeContext(type)`.
template <class TakeContext>
bool ReadAssociate(Buffer& buffer, PduHeader& pdu, std::uint8_t type, AssociateFields& fields,
                   TakeContext takeContext) {
    std::vector<unsigned char> body;
    if (!pdu.ReadHeader(buffer, type) || !ReadBody(buffer, pdu.m_Length, body)) return false;
    MemoryInputBuffer in(body.data(), body.size(), Buffer::kBigEndian);
    fields.m_UserInformation = {};
    fields.m_ApplicationContext = {};
    if (!in.ReadUINT16(fields.m_ProtocolVersion) || !in.ReadUINT16(fields.m_Reserved2)) return false;
    if (in.GetRemaining() < 2 * kTitleBytes + fields.m_Reserved3.size()) return false;
    fields.m_CalledAETitle = ReadTitle(in);
    fields.m_CallingAETitle = ReadTitle(in);
    in.Read(fields.m_Reserved3.data(), fields.m_Reserved3.size());
    return ForEachItem(in, [&](std::uint8_t item) {
        if (item == kApplicationContextItem) return ReadUid(in, fields.m_ApplicationContext);
        if (item != kUserInformationItem) return takeContext(in, item);
        return ForEachItem(in, [&](std::uint8_t inner) { return ReadUserItem(in, inner, fields.m_UserInformation); });
    });
}

bool ReadProposed(Buffer& in, ProposedContext& context) {
    if (!in.ReadUINT8(context.id) || !in.Skip(3)) return false;
    return ForEachItem(in, [&](std::uint8_t type) {
        if (type == kAbstractSyntaxItem) return ReadUid(in, context.abstractSyntax);
        if (type != kTransferSyntaxItem || context.transferSyntaxes.size() == kMostSyntaxes) return true;
        return ReadUid(in, context.transferSyntaxes.emplace_back());
    });
}

bool ReadAnswered(Buffer& in, AnsweredContext& context) {
    if (!in.ReadUINT8(context.id) || !in.Skip(1) || !in.ReadUINT8(context.result) || !in.Skip(1)) return false;
    return ForEachItem(in, [&](std::uint8_t type) {
        // The transfer syntax of a context that was not accepted has no meaning (PS3.8 9.3.3.2), and is not looked at.
        const bool counts = type == kTransferSyntaxItem && context.result == kContextAccepted;
        return !counts || ReadUid(in, context.transferSyntax);
    });
}

void Dump(const char* what, const PduHeader& pdu, const AssociateFields& fields, std::size_t contexts) {
    if (!IsDebugFlagOn(kDumpPData)) return;
    Trace(kDumpPData, "%s Length[4]=%u\n\tCalled[16]=%s\n\tCalling[16]=%s\n\tContexts=%u\n\tMaximumLength[4]=%u\n",
          what, static_cast<unsigned>(pdu.m_Length), Printable(fields.m_CalledAETitle).c_str(),
          Printable(fields.m_CallingAETitle).c_str(), static_cast<unsigned>(contexts),
          static_cast<unsigned>(fields.m_UserInformation.maximumLength));
}

const char* RejectReasonText(std::uint8_t source, std::uint8_t reason) {
    switch (source * 16 + reason) {
    case kRejectUser * 16 + kRejectUserNoReason:
    case kRejectProviderAcse * 16 + kRejectAcseNoReason: return "no reason given";
    case kRejectUser * 16 + kRejectUserApplicationContext: return "application context name not supported";
    case kRejectUser * 16 + kRejectUserCallingTitle: return "calling AE title not recognized";
    case kRejectUser * 16 + kRejectUserCalledTitle: return "called AE title not recognized";
    case kRejectProviderAcse * 16 + kRejectAcseProtocolVersion: return "protocol version not supported";
    case kRejectProviderPresentation * 16 + kRejectPresentationCongestion: return "temporary congestion";
    case kRejectProviderPresentation * 16 + kRejectPresentationLocalLimit: return "local limit exceeded";
    default: return nullptr;
    }
}

}  // namespace

AssociateFields::AssociateFields() {
    m_UserInformation.implementationClass.Set(kImplementationClassUid);
    m_UserInformation.implementationVersion = kImplementationVersionName;
}

std::uint8_t AAssociateRQ::Propose(std::string_view abstractSyntax, const std::vector<std::string>& transferSyntaxes) {
    if (m_Contexts.size() >= kMostContexts) return 0;
    ProposedContext& context = m_Contexts.emplace_back();
    context.id = static_cast<std::uint8_t>(2 * m_Contexts.size() - 1);
    context.abstractSyntax.Set(abstractSyntax);
    for (const std::string& syntax : transferSyntaxes) context.transferSyntaxes.emplace_back(syntax);
    if (transferSyntaxes.empty()) context.transferSyntaxes.push_back(m_TransferSyntax);
    return context.id;
}

int AAssociateRQ::WritePDU(Buffer& buffer) {
    m_Type = kAssociateRQ;
    const int written = WriteAssociate(buffer, *this, *this, [&](Buffer& body) {
        for (const ProposedContext& context : m_Contexts) {
            WriteNested(body, kContextRQItem, [&](Buffer& item) {
                item.WriteUINT8(context.id);
                item.WriteZeros(3);
                WriteItem(item, kAbstractSyntaxItem, context.abstractSyntax.Get());
                for (const UidField& syntax : context.transferSyntaxes) {
                    WriteItem(item, kTransferSyntaxItem, syntax.Get());
                }
            });
        }
    });
    Dump("Writing AAssociateRQ (0x01)", *this, *this, m_Contexts.size());
    return written;
}

int AAssociateRQ::ReadPDU(Buffer& buffer, std::uint8_t type) {
    m_Contexts.clear();
    const bool read = ReadAssociate(buffer, *this, type, *this, [&](Buffer& in, std::uint8_t item) {
        if (item != kContextRQItem) return true;
        return m_Contexts.size() < kMostContexts && ReadProposed(in, m_Contexts.emplace_back());
    });
    if (read) Dump("Reading AAssociateRQ (0x01)", *this, *this, m_Contexts.size());
    return read ? 1 : 0;
}

int AAssociateAC::WritePDU(Buffer& buffer) {
    m_Type = kAssociateAC;
    const int written = WriteAssociate(buffer, *this, *this, [&](Buffer& body) {
        for (const AnsweredContext& context : m_Contexts) {
            WriteNested(body, kContextACItem, [&](Buffer& item) {
                item.WriteUINT8(context.id);
                item.WriteUINT8(0);
                item.WriteUINT8(context.result);
                item.WriteUINT8(0);
                WriteItem(item, kTransferSyntaxItem, context.transferSyntax.Get());
            });
        }
    });
    Dump("Writing AAssociateAC (0x02)", *this, *this, m_Contexts.size());
    return written;
}

int AAssociateAC::ReadPDU(Buffer& buffer, std::uint8_t type) {
    m_Contexts.clear();
    const bool read = ReadAssociate(buffer, *this, type, *this, [&](Buffer& in, std::uint8_t item) {
        if (item != kContextACItem) return true;
        return m_Contexts.size() < kMostContexts && ReadAnswered(in, m_Contexts.emplace_back());
    });
    if (read) Dump("Reading AAssociateAC (0x02)", *this, *this, m_Contexts.size());
    return read ? 1 : 0;
}

int AAssociateRJ::WritePDU(Buffer& buffer) {
    m_Length = 4;
    const bool written = WriteHeader(buffer) && buffer.WriteUINT8(m_Reserved2) && buffer.WriteUINT8(m_Result) &&
                         buffer.WriteUINT8(m_Source) && buffer.WriteUINT8(m_Reason) && buffer.Flush();
    Trace(kDumpPData, "Writing AAssociateRJ (0x03) Result=%u Source=%u Reason=%u\n", m_Result, m_Source, m_Reason);
    return written ? 1 : 0;
}

int AAssociateRJ::ReadPDU(Buffer& buffer, std::uint8_t type) {
    const bool read = ReadHeader(buffer, type) && m_Length == 4 && buffer.ReadUINT8(m_Reserved2) &&
                      buffer.ReadUINT8(m_Result) && buffer.ReadUINT8(m_Source) && buffer.ReadUINT8(m_Reason);
    if (read)
        Trace(kDumpPData, "Reading AAssociateRJ (0x03) Result=%u Source=%u Reason=%u\n", m_Result, m_Source, m_Reason);
    return read ? 1 : 0;
}

std::string AAssociateRJ::GetText() const {
    const char* const how = m_Result == kRejectedPermanent   ? "rejected (permanent)"
                            : m_Result == kRejectedTransient ? "rejected (transient)"
                                                             : "rejected";
    const char* const who = m_Source == kRejectUser                   ? " by the service user: "
                            : m_Source == kRejectProviderAcse         ? " by the service provider (ACSE): "
                            : m_Source == kRejectProviderPresentation ? " by the service provider (presentation): "
                                                                      : ": ";
    const char* const reason = m_Reason < 16 ? RejectReasonText(m_Source, m_Reason) : nullptr;
    return std::string(how) + who + (reason != nullptr ? reason : "reason " + std::to_string(m_Reason));
}
