#include "CommitmentMessages.h"

#include "DataSetMessages.h"

#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

namespace korvane {

bool SendCommitment(DcmService& service, CommandField field, const CommitmentData& data, DimseCommand& sent) {
    const AcceptedContext* found = service.FindContext(kCommitmentClass, kExplicitLittleEndianUid);
    if (found == nullptr) found = service.FindContext(kCommitmentClass, kImplicitLittleEndianUid);
    if (found == nullptr) return false;
    const AcceptedContext context = *found;
    const bool isRequest = field == kActionRQ;
    sent = {};
    sent.field = field;
    sent.messageId = service.NextMessageId();
    sent.sopClass = kCommitmentClass;
    sent.sopInstance = kCommitmentInstance;
    sent.typeId = isRequest ? kCommitmentRequest : data.CountFailed() > 0 ? kCommitmentFailures : kCommitmentComplete;
    sent.dataSetType = 1;
    return service.SendCommand(context.id, sent) != 0 && SendDataSet(service, context, MakeCommitment(data));
}

bool IsAnswerTo(const DimseCommand& command, const DimseCommand& sent) {
    return command.field == (sent.field | kResponseBit) && command.messageId == sent.messageId;
}

std::optional<CommitmentData> ReceiveCommitment(DcmService& service, std::uint8_t context, const DimseCommand& command,
                                                DcmService::Event& event) {
    event = DcmService::Event::Message;
    if (!command.HasDataSet()) return std::nullopt;
    const ReceivedDataSet received = ReceiveDataSet(service, context);
    event = received.event;
    if (received.isTooLarge) {
        service.Abort();
        event = DcmService::Event::Fault;
    }
    return received.dataSet != nullptr ? ReadCommitment(*received.dataSet) : std::nullopt;
}

void ProposeCommitment(DcmService& service, bool asProvider) {
    service.Propose(kCommitmentClass, {std::string(kExplicitLittleEndianUid), std::string(kImplicitLittleEndianUid)});
    if (!asProvider) return;
    RoleSelection role;
    role.sopClass.Set(kCommitmentClass);
    role.scpRole = 1;
    service.AAssociateRQ::m_UserInformation.roles.push_back(role);
}

}  // namespace korvane
