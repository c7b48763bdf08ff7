#include "ReceiveSession.h"

#include "CommitmentMessages.h"

#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <algorithm>

namespace korvane {

namespace {

using Event = DcmService::Event;

// A peer that is silent for so long after its request waits for the report. One that goes on, most often to release the
// association, would be confused by a request in between.
constexpr int kSilence = 150;  // milliseconds

}  // namespace

ReceiveSession::~ReceiveSession() {
    if (m_bSent) m_Waiting.push_front(m_Report.transaction);
    for (const std::string& transaction : m_Waiting) m_pReporter->HandOver(transaction);
}

Event ReceiveSession::Serve(const AcceptPolicy& policy) {
    return ServeAssociation(m_Service, policy, [this](std::uint8_t context, const DimseCommand& command) {
        const Event event = Handle(context, command);
        const bool isQuiet =
            event == Event::Message && !m_Waiting.empty() && !m_bSent && !m_Service.WaitForData(kSilence);
        return isQuiet ? Report() : event;
    });
}

Event ReceiveSession::Handle(std::uint8_t contextId, const DimseCommand& command) {
    const bool isCommitment = m_Service.FindContext(contextId)->sopClass == kCommitmentClass;
    if (isCommitment && command.field == kActionRQ && m_pReporter != nullptr) return TakeRequest(contextId, command);
    if (isCommitment && command.field == kEventReportRQ && m_TakeReport) return TakeNews(contextId, command);
    if (m_bSent && IsAnswerTo(command, m_Sent)) return TakeAnswer(contextId, command);
    return m_Storage.Handle(contextId, command);
}

Event ReceiveSession::TakeRequest(std::uint8_t contextId, const DimseCommand& command) {
    const AcceptedContext context = *m_Service.FindContext(contextId);
    Event event;
    const auto request = ReceiveCommitment(m_Service, contextId, command, event);
    if (event != Event::Message) return event;
    const std::uint16_t status = Keep(context, command, request ? &*request : nullptr);
    event = Answer(contextId, command, status);
    if (status != kStatusSuccess) return event;
    const bool isRepeated = std::find(m_Waiting.begin(), m_Waiting.end(), request->transaction) != m_Waiting.end();
    if (!isRepeated) m_Waiting.push_back(request->transaction);
    return event;
}

std::uint16_t ReceiveSession::Keep(const AcceptedContext& context, const DimseCommand& command,
                                   const CommitmentData* request) {
    // Without a fixed encoding no report could be made in this context.
    const bool isPlain =
        context.transferSyntax == kImplicitLittleEndianUid || context.transferSyntax == kExplicitLittleEndianUid;
    if (!isPlain) return kStatusClassNotSupported;
    if (command.sopInstance != kCommitmentInstance) return kStatusNoSuchInstance;
    if (command.typeId != kCommitmentRequest) return kStatusNoSuchAction;
    if (request == nullptr || request->CountFailed() > 0) return kStatusInvalidArgument;
    return m_pReporter->Keep(m_Service.GetCallingTitle(), m_Service.GetCalledTitle(), *request);
}

Event ReceiveSession::TakeNews(std::uint8_t contextId, const DimseCommand& command) {
    Event event;
    const auto report = ReceiveCommitment(m_Service, contextId, command, event);
    if (event != Event::Message) return event;
    if (!report) return Answer(contextId, command, kStatusInvalidArgument);
    CommitmentNews news{report->transaction, m_Service.GetCallingTitle(), {}};
    for (const CommitmentItem& item : report->items) {
        news.instances.push_back({item.sopClass, item.sopInstance, item.failure});
    }
    return Answer(contextId, command, m_TakeReport(news) ? kStatusSuccess : kStatusProcessingFailure);
}

Event ReceiveSession::TakeAnswer(std::uint8_t contextId, const DimseCommand& command) {
    m_bSent = false;
    m_pReporter->NoteAnswer(m_Report, command.status);
    Event event;
    ReceiveCommitment(m_Service, contextId, command, event);
    return event;
}

Event ReceiveSession::Report() {
    const std::string transaction = m_Waiting.front();
    m_Waiting.pop_front();
    if (!m_pReporter->Look(transaction, m_Report)) {
        m_Waiting.push_back(transaction);
        return Event::Message;  // stopped, which the next wait notices
    }
    m_bSent = true;
    return SendCommitment(m_Service, kEventReportRQ, m_Report, m_Sent) ? Event::Message : Event::Closed;
}

Event ReceiveSession::Answer(std::uint8_t context, const DimseCommand& command, std::uint16_t status) {
    return m_Service.SendCommand(context, command.MakeResponse(status)) != 0 ? Event::Message : Event::Closed;
}

}  // namespace korvane
