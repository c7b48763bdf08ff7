#include "QueryUser.h"

#include "DataSetMessages.h"

#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

namespace korvane {

namespace {

using Event = DcmService::Event;

constexpr std::string_view kWorklistClass = "1.2.840.10008.5.1.4.31";

// SOP classes by model (patient root, study root) and service.
constexpr std::string_view kClasses[2][3] = {
    {"1.2.840.10008.5.1.4.1.2.1.1", "1.2.840.10008.5.1.4.1.2.1.2", "1.2.840.10008.5.1.4.1.2.1.3"},
    {"1.2.840.10008.5.1.4.1.2.2.1", "1.2.840.10008.5.1.4.1.2.2.2", "1.2.840.10008.5.1.4.1.2.2.3"},
};

}  // namespace

std::string_view ClassOf(QueryService service, QueryLevel level, bool patientRoot) {
    if (level == QueryLevel::Worklist) return kWorklistClass;
    const bool isPatient = patientRoot || level == QueryLevel::Patient;
    return kClasses[isPatient ? 0 : 1][static_cast<int>(service)];
}

void QueryUser::Propose(std::string_view sopClass) {
    m_Peer.GetService().Propose(sopClass,
                                {std::string(kExplicitLittleEndianUid), std::string(kImplicitLittleEndianUid)});
}

void QueryUser::Request(CommandField field, std::string_view sopClass, const DataSet& identifier,
                        const std::string& destination) {
    DcmService& service = m_Peer.GetService();
    const AcceptedContext* const found = service.FindContext(sopClass);
    if (found == nullptr) {
        throw Error(ErrorKind::Refused, m_Peer.GetName() + ": the peer does not offer this service (SOP class " +
                                            std::string(sopClass) + ")");
    }
    const AcceptedContext context = *found;
    m_Request = {};
    m_Request.field = field;
    m_Request.messageId = service.NextMessageId();
    m_Request.sopClass = sopClass;
    m_Request.dataSetType = 1;
    m_Request.moveDestination = destination;
    m_Asked = context.id;
    const bool sent = service.SendCommand(context.id, m_Request) != 0 && SendDataSet(service, context, identifier);
    m_Watch.StopIfAsked();
    if (!sent) throw m_Peer.MakeError();
}

DimseCommand QueryUser::Receive() {
    DimseCommand command;
    const Event event = m_Peer.GetService().ReceiveCommand(m_Context, command);
    m_Watch.StopIfAsked();
    if (event != Event::Message) throw m_Peer.MakeError();
    if (!command.IsResponse() || IsResponse(command)) return command;
    m_Peer.GetService().Abort();
    throw Error(ErrorKind::Refused, m_Peer.GetName() + ": a message that is no response to the request");
}

bool QueryUser::IsResponse(const DimseCommand& command) const {
    return m_Context == m_Asked && command.field == (m_Request.field | kResponseBit) &&
           command.messageId == m_Request.messageId;
}

DataSet QueryUser::ReadIdentifier(std::size_t& bytes) {
    DcmService& service = m_Peer.GetService();
    ReceivedDataSet received = ReceiveDataSet(service, m_Context);
    m_Watch.StopIfAsked();
    if (received.event != Event::Message) throw m_Peer.MakeError();
    if (received.dataSet == nullptr) {
        service.Abort();
        throw Error(ErrorKind::Damaged, m_Peer.GetName() + ": the data set of an answer is damaged, or too large");
    }
    bytes += received.bytes;
    return DataSet::FromToolkit(std::move(received.dataSet));
}

void QueryUser::Cancel() {
    DimseCommand cancel;
    cancel.field = kCancelRQ;
    cancel.messageId = m_Request.messageId;
    m_Peer.GetService().SendCommand(m_Asked, cancel);
}

Error QueryUser::MakeError(const DimseCommand& response) const {
    std::string text = m_Peer.GetName() + ": " + DimseStatusText(response.status);
    if (!response.errorComment.empty()) text += ": " + response.errorComment;
    return {ErrorKind::Refused, text};
}

}  // namespace korvane
