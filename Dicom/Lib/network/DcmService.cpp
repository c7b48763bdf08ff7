#include "DcmService.h"

#include "PDataBuffers.h"

#include <algorithm>

namespace {

constexpr int kLongestCloseWait = 5;
constexpr std::uint32_t kSlowest = 1024;                           // bytes a second that a peer must send
constexpr std::uint32_t kShortestLength = PDataTF::kOverhead + 2;  // the shortest PDU that carries data

}  // namespace

DcmService::DcmService() = default;

DcmService::~DcmService() {
    Abort();
}

void DcmService::Begin(State state) {
    Restart();
    m_State = state;
    m_Error.clear();
    m_Agreed.clear();
    m_MessageId = 0;
    m_bRequestor = state == State::AwaitingAnswer;
    PDataTF::m_LengthLimit = m_OwnLength;
    PDataTF::ForgetPDU();
}

// Ends the association: closes the connection and keeps the reason.
DcmService::Event DcmService::End(Event event, const std::string& what) {
    m_State = State::Idle;
    m_Agreed.clear();
    if (m_Error.empty()) m_Error = what;
    Disconnect();
    return event;
}

DcmService::Event DcmService::Associate(const char* host, const char* port) {
    if (m_State != State::Idle) return Event::Fault;
    Begin(State::AwaitingAnswer);
    if (GetSocket().Open(host, port, [this] { return IsStopped(); }) == 0) {
        if (IsStopped()) return End(Event::Stopped, "stopped");
        return End(Event::Closed, GetSocket().GetErrorText());
    }
    return Ask();
}

DcmService::Event DcmService::Associate() {
    if (m_State != State::Idle || !IsConnected()) return Event::Fault;
    Begin(State::AwaitingAnswer);
    return Ask();
}

DcmService::Event DcmService::Ask() {
    SetDeadline(GetSocket().GetTimeout());
    AAssociateRQ::m_UserInformation.maximumLength = m_OwnLength;
    if (AAssociateRQ::WritePDU(*this) == 0) return SendFailed();
    return ReadAnswer();
}

DcmService::Event DcmService::ReadAnswer() {
    std::uint8_t type;
    const Event event = NextPdu(type);
    if (event != Event::Message) return event;
    if (type == kAssociateRJ) {
        if (AAssociateRJ::ReadPDU(*this, type) == 0)
            return BreakOff(kAbortInvalidParameter, "malformed A-ASSOCIATE-RJ");
        return End(Event::Rejected, AAssociateRJ::GetText());
    }
    if (type != kAssociateAC) return Unexpected(type);
    if (AAssociateAC::ReadPDU(*this, type) == 0) return BreakOff(kAbortInvalidParameter, "malformed A-ASSOCIATE-AC");
    if (!TakeAnswer()) return BreakOff(kAbortInvalidParameter, "the peer accepted what was not proposed");
    if (!TakeSendLength(AAssociateAC::m_UserInformation.maximumLength)) {
        return BreakOff(kAbortInvalidParameter, "the peer's maximum length leaves no room for data");
    }
    SetDeadline(0);
    m_State = State::Established;
    return Event::Accepted;
}

// Keeps the contexts that were accepted. False where the answer accepts a context or transfer syntax that was not
// proposed.
bool DcmService::TakeAnswer() {
    for (const AnsweredContext& answered : AAssociateAC::m_Contexts) {
        if (answered.result != kContextAccepted) continue;
        const auto& proposed = AAssociateRQ::m_Contexts;
        const auto found = std::find_if(proposed.begin(), proposed.end(), [&](const ProposedContext& context) {
            const auto& syntaxes = context.transferSyntaxes;
            return context.id == answered.id &&
                   std::find(syntaxes.begin(), syntaxes.end(), answered.transferSyntax) != syntaxes.end();
        });
        if (found == proposed.end() || FindContext(answered.id) != nullptr) return false;
        m_Agreed.push_back(
            {answered.id, std::string(found->abstractSyntax.Get()), std::string(answered.transferSyntax.Get())});
    }
    return true;
}

bool DcmService::TakeSendLength(std::uint32_t peerLength) {
    m_SendLength = peerLength == 0 ? kDefaultLength : std::min(peerLength, kDefaultLength);
    return m_SendLength >= kShortestLength;
}

DcmService::Event DcmService::AcceptAssociation(const AcceptPolicy& policy) {
    if (m_State != State::Idle || !IsConnected()) return Event::Fault;
    Begin(State::AwaitingRequest);
    SetDeadline(m_Artim);
    std::uint8_t type;
    const Event event = NextPdu(type);
    if (event != Event::Message) return event;
    if (type != kAssociateRQ) return Unexpected(type);
    if (AAssociateRQ::ReadPDU(*this, type) == 0) return BreakOff(kAbortInvalidParameter, "malformed A-ASSOCIATE-RQ");
    SetDeadline(0);
    return Answer(policy);
}

DcmService::Event DcmService::Answer(const AcceptPolicy& policy) {
    AAssociateRQ& request = *this;
    if ((request.m_ProtocolVersion & 1) == 0) {
        return Reject(kRejectedPermanent, kRejectProviderAcse, kRejectAcseProtocolVersion);
    }
    if (request.m_ApplicationContext.Get() != kApplicationContextUid) {
        return Reject(kRejectedPermanent, kRejectUser, kRejectUserApplicationContext);
    }
    if (policy.rejectResult != 0) return Reject(policy.rejectResult, policy.rejectSource, policy.rejectReason);
    if (!policy.aeTitle.empty() && policy.aeTitle != request.m_CalledAETitle) {
        return Reject(kRejectedPermanent, kRejectUser, kRejectUserCalledTitle);
    }
    const auto& callers = policy.callingTitles;
    if (!callers.empty() && std::find(callers.begin(), callers.end(), request.m_CallingAETitle) == callers.end()) {
        return Reject(kRejectedPermanent, kRejectUser, kRejectUserCallingTitle);
    }
    AAssociateAC& answer = *this;
    static_cast<AssociateFields&>(answer) = AssociateFields();
    answer.m_CalledAETitle = request.m_CalledAETitle;
    answer.m_CallingAETitle = request.m_CallingAETitle;
    answer.m_Reserved3 = request.m_Reserved3;
    answer.m_UserInformation.maximumLength = m_OwnLength;
    answer.m_Contexts.clear();
    std::vector<bool> seen(256);
    for (const ProposedContext& proposed : request.m_Contexts) {
        if (proposed.id % 2 == 0 || seen[proposed.id]) {
            return BreakOff(kAbortInvalidParameter, "presentation contexts with even or equal numbers");
        }
        seen[proposed.id] = true;
        answer.m_Contexts.push_back(policy.Negotiate(proposed));
        const AnsweredContext& answered = answer.m_Contexts.back();
        if (answered.result != kContextAccepted) continue;
        m_Agreed.push_back(
            {answered.id, std::string(proposed.abstractSyntax.Get()), std::string(answered.transferSyntax.Get())});
    }
    for (const RoleSelection& role : request.m_UserInformation.roles) {
        const bool mayProvide = policy.acceptsProvider && policy.acceptsProvider(role.sopClass.Get());
        if (mayProvide) answer.m_UserInformation.roles.push_back(role);
    }
    if (!TakeSendLength(request.m_UserInformation.maximumLength)) {
        return BreakOff(kAbortInvalidParameter, "the peer's maximum length leaves no room for data");
    }
    if (answer.WritePDU(*this) == 0) return SendFailed();
    m_State = State::Established;
    return Event::Accepted;
}

DcmService::Event DcmService::Reject(std::uint8_t result, std::uint8_t source, std::uint8_t reason) {
    AAssociateRJ::m_Result = result;
    AAssociateRJ::m_Source = source;
    AAssociateRJ::m_Reason = reason;
    AAssociateRJ::WritePDU(*this);
    AwaitClose();
    return End(Event::Rejected, AAssociateRJ::GetText());
}

// Reads the type of the next PDU; an A-ABORT is handled here. For the rest of the PDU the peer has the time-out of one
// receive and one second more for each KB: otherwise one that sends byte after byte could occupy an acceptor for weeks.
DcmService::Event DcmService::NextPdu(std::uint8_t& type) {
    LimitWaiting(0);
    if (!ReadUINT8(type)) return ReadFailed();
    LimitWaiting(GetSocket().GetTimeout());
    if (type != kAbortRQ) return Event::Message;
    if (AAbortRQ::ReadPDU(*this, type) == 0) return End(Event::Aborted, "malformed A-ABORT");
    return End(Event::Aborted, AAbortRQ::GetText());
}

// Reads the header of the next PDV, which must be of the given context (0: any) and kind.
DcmService::Event DcmService::NextPdv(std::uint8_t context, std::uint8_t kind) {
    if (m_State != State::Established) return Event::Fault;
    while (!PDataTF::HasPDV()) {
        std::uint8_t type;
        const Event event = NextPdu(type);
        if (event != Event::Message) return event;
        if (type == kReleaseRQ) return AnswerRelease();
        if (type != kPDataTF) return Unexpected(type);
        if (PDataTF::ReadPDU(*this, type) == 0) return BreakOff(kAbortInvalidParameter, "malformed P-DATA-TF");
        LimitWaiting(std::int64_t{GetSocket().GetTimeout()} + PDataTF::m_Length / kSlowest);
    }
    if (PDataTF::ReadPDV(*this) == 0) return BreakOff(kAbortInvalidParameter, "malformed P-DATA-TF");
    if (FindContext(m_ContextID) == nullptr) {
        return BreakOff(kAbortInvalidParameter, "data on a presentation context that was not accepted");
    }
    if (context != 0 && m_ContextID != context) {
        return BreakOff(kAbortUnexpectedParameter, "a message on two presentation contexts");
    }
    if ((m_ControlHeader & PDataTF::kCommand) != kind) {
        return BreakOff(kAbortUnexpectedParameter, kind != 0 ? "a data set without a command in front of it"
                                                             : "a command in the middle of a message");
    }
    return Event::Message;
}

DcmService::Event DcmService::Unexpected(std::uint8_t type) {
    const bool isKnown = type >= kAssociateRQ && type <= kAbortRQ;
    return BreakOff(isKnown ? kAbortUnexpectedPdu : kAbortUnrecognizedPdu,
                    (isKnown ? "unexpected PDU of type " : "unknown PDU of type ") + std::to_string(type));
}

DcmService::Event DcmService::AnswerRelease() {
    if (AReleaseRQ::ReadPDU(*this, kReleaseRQ) == 0) return BreakOff(kAbortInvalidParameter, "malformed A-RELEASE-RQ");
    if (AReleaseRP::WritePDU(*this) == 0) return SendFailed();
    AwaitClose();
    return End(Event::Released, "");
}

DcmService::Event DcmService::Release() {
    if (m_State != State::Established) return Event::Fault;
    if (AReleaseRQ::WritePDU(*this) == 0) return SendFailed();
    m_State = State::AwaitingRelease;
    SetDeadline(GetSocket().GetTimeout());
    bool collided = false;
    for (;;) {
        std::uint8_t type;
        const Event event = NextPdu(type);
        if (event != Event::Message) return event;
        if (type == kReleaseRP) {
            if (AReleaseRP::ReadPDU(*this, type) == 0)
                return BreakOff(kAbortInvalidParameter, "malformed A-RELEASE-RP");
            if (collided && !m_bRequestor) {
                AReleaseRP::WritePDU(*this);
                AwaitClose();
            }
            return End(Event::Released, "");
        }
        if (collided) return Unexpected(type);
        if (type == kPDataTF) {  // sent by the peer before it saw the release request; nobody waits for it any more
            if (PDataTF::ReadPDU(*this, type) == 0 || !Skip(PDataTF::m_Length)) {
                return BreakOff(kAbortInvalidParameter, "malformed P-DATA-TF");
            }
        } else if (type == kReleaseRQ) {  // both sides asked at once: the requestor answers first (PS3.8 7.2.2)
            if (AReleaseRQ::ReadPDU(*this, type) == 0)
                return BreakOff(kAbortInvalidParameter, "malformed A-RELEASE-RQ");
            collided = true;
            if (m_bRequestor && AReleaseRP::WritePDU(*this) == 0) return SendFailed();
        } else {
            return Unexpected(type);
        }
    }
}

void DcmService::Abort(std::uint8_t source, std::uint8_t reason) {
    if (m_State == State::Idle) return;
    SendAbort(source, reason);
    AwaitClose();
    End(Event::Aborted, "aborted here");
}

void DcmService::SendAbort(std::uint8_t source, std::uint8_t reason) {
    AAbortRQ::m_Source = source;
    AAbortRQ::m_Reason = reason;
    AAbortRQ::WritePDU(*this);
}

// Waits for the peer to close the connection. Closing it here while bytes of the peer are unread would make the system
// throw away what was sent last, before the peer has read it.
void DcmService::AwaitClose() {
    m_State = State::AwaitingClose;
    ShutDownSending();
    SetDeadline(std::min(m_Artim, kLongestCloseWait));
    Skip(kUnknown);
}

DcmService::Event DcmService::BreakOff(std::uint8_t reason, const std::string& what) {
    if (WhyReadFailed() != ReadFault::None)
        return ReadFailed();  // not malformed: the connection ended in the middle of it
    m_Error = what;
    if (m_State == State::AwaitingRequest) {
        SendAbort(kAbortUser, kAbortNoReason);  // no association yet: action AA-1 (PS3.8 9.2)
    } else {
        SendAbort(kAbortProvider, reason);
    }
    AwaitClose();
    return End(Event::Fault, what);
}

DcmService::Event DcmService::ReadFailed() {
    switch (WhyReadFailed()) {
    case ReadFault::TimedOut:
        if (m_State != State::AwaitingRequest) SendAbort(kAbortProvider, kAbortNoReason);
        return End(Event::TimedOut, "the peer did not answer in time");
    case ReadFault::Stopped: SendAbort(kAbortUser, kAbortNoReason); return End(Event::Stopped, "stopped");
    default: return End(Event::Closed, "the peer closed the connection");
    }
}

// After a failure to send, which is how a closed connection shows: an A-ABORT that tells why may have arrived before.
DcmService::Event DcmService::SendFailed() {
    std::uint8_t type;
    if (WaitForData(0) && ReadUINT8(type) && type == kAbortRQ && AAbortRQ::ReadPDU(*this, type) != 0) {
        return End(Event::Aborted, AAbortRQ::GetText());
    }
    if (IsStopped()) return End(Event::Stopped, "stopped");
    return End(Event::Closed, "the connection broke while sending");
}

const AcceptedContext* DcmService::FindContext(std::uint8_t id) const {
    const auto found = std::find_if(m_Agreed.begin(), m_Agreed.end(), [id](const auto& c) { return c.id == id; });
    return found != m_Agreed.end() ? &*found : nullptr;
}

const AcceptedContext* DcmService::FindContext(std::string_view sopClass, std::string_view transferSyntax) const {
    const auto found = std::find_if(m_Agreed.begin(), m_Agreed.end(), [&](const auto& c) {
        return c.sopClass == sopClass && (transferSyntax.empty() || c.transferSyntax == transferSyntax);
    });
    return found != m_Agreed.end() ? &*found : nullptr;
}
