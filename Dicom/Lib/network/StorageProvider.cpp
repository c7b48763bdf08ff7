#include "StorageProvider.h"

#include "Dicom/Lib/syntax/DataSetWalker.h"
#include "Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "PDataBuffers.h"

#include <algorithm>

namespace {

using Event = DcmService::Event;

constexpr std::size_t kPieceBytes = 256 * 1024;

// Fills the piece with data, less only at the end of the data set: it arrives in many small parts, and writing a file
// in large ones is faster. Returns the number of bytes.
std::size_t FillPiece(PDataInputBuffer& data, std::vector<unsigned char>& piece) {
    std::size_t used = 0;
    while (used < piece.size()) {
        const std::size_t got = data.ReadSome(piece.data() + used, piece.size() - used);
        if (got == 0) break;
        used += got;
    }
    return used;
}

const char* ReasonText(std::uint16_t status) {
    switch (status) {
    case kStatusSuccess: return "";
    case kStatusClassNotSupported: return "the SOP class is not that of the presentation context";
    case kStatusInvalidInstance: return "the SOP instance UID is no UID";
    case kStatusDataSetMismatch: return "the data set has another SOP class or instance";
    case kStatusCannotUnderstand: return "the data set is missing, damaged or cut off";
    default: return "the data set cannot be stored";
    }
}

}  // namespace

std::uint16_t CheckDataSet(const DataSetWalker& walked, const StorageRequest& request) {
    if (!walked.IsWhole()) return kStatusCannotUnderstand;
    const bool fits = walked.GetSopClass() == request.sopClass && walked.GetSopInstance() == request.sopInstance;
    return fits ? kStatusSuccess : kStatusDataSetMismatch;
}

bool IsUid(std::string_view text) {
    if (text.empty() || text.size() > 64 || text.front() == '.' || text.back() == '.') return false;
    if (text.find("..") != std::string_view::npos) return false;
    return text.find_first_not_of("0123456789.") == std::string_view::npos;
}

Event ServeAssociation(DcmService& service, const AcceptPolicy& policy, const CommandHandler& handle) {
    Event event = service.AcceptAssociation(policy);
    if (event != Event::Accepted) return event;
    do {
        std::uint8_t context = 0;
        DimseCommand command;
        event = service.ReceiveCommand(context, command);
        if (event == Event::Message) event = handle(context, command);
    } while (event == Event::Message);
    return event;
}

Event StorageProvider::Serve(const AcceptPolicy& policy) {
    return ServeAssociation(m_Service, policy, [this](std::uint8_t context, const DimseCommand& command) {
        return Handle(context, command);
    });
}

Event StorageProvider::Handle(std::uint8_t contextId, const DimseCommand& command) {
    const AcceptedContext context = *m_Service.FindContext(contextId);
    if (command.field == kStoreRQ) return Store(context, command);
    if (command.HasDataSet()) {
        PDataInputBuffer data(m_Service, contextId, 0);
        if (data.Finish() == 0) return data.GetEvent();
    }
    if (command.IsResponse()) {  // nothing was asked that it could answer
        m_Service.Abort();
        return Event::Fault;
    }
    if (command.field == kCancelRQ) return Event::Message;  // the operation that it would cancel is over
    std::uint16_t status = kStatusUnrecognizedOperation;
    if (command.field == kEchoRQ) {
        status = context.sopClass == kVerificationClass ? kStatusSuccess : kStatusClassNotSupported;
    }
    return Answer(contextId, command, status, "");
}

Event StorageProvider::Store(const AcceptedContext& context, const DimseCommand& command) {
    const StorageRequest request = {command.sopClass, command.sopInstance, context.transferSyntax,
                                    m_Service.GetCallingTitle()};
    std::uint16_t status = kStatusCannotUnderstand;
    if (command.HasDataSet()) {
        PDataInputBuffer data(m_Service, context.id, 0);
        const bool isStorage = context.sopClass != kVerificationClass && context.sopClass != kCommitmentClass;
        if (!isStorage || command.sopClass != context.sopClass || !IsUid(command.sopClass)) {
            status = kStatusClassNotSupported;
        } else if (!IsUid(command.sopInstance) && !(m_bAnyInstance && !command.sopInstance.empty())) {
            status = kStatusInvalidInstance;
        } else {
            status = Receive(data, request);
        }
        // A data set that is refused is still read to its end: the response may be sent only after it.
        if (data.Finish() == 0) return data.GetEvent();
    }
    const char* const reason = ReasonText(status);
    m_Sink.Answered(request, status, reason);
    return Answer(context.id, command, status, reason);
}

// Passes the data set to the sink. After a failure the rest of it has not been read.
std::uint16_t StorageProvider::Receive(PDataInputBuffer& data, const StorageRequest& request) {
    std::uint16_t status = m_Sink.Begin(request);
    if (status != kStatusSuccess) return status;
    m_Piece.resize(kPieceBytes);
    const bool isSeen = !IsDeflatedTransferSyntax(request.transferSyntax);
    DataSetWalker walker(FindTransferSyntax(request.transferSyntax, kExplicitLittleEndian));
    while (status == kStatusSuccess) {
        const std::size_t count = FillPiece(data, m_Piece);
        if (count == 0 || (isSeen && !walker.Feed(m_Piece.data(), count))) break;
        status = m_Sink.Write(m_Piece.data(), count);
    }
    if (status == kStatusSuccess) {
        const bool hasCome =
            data.GetEvent() == Event::Message;  // else the association has ended, and the status is never sent
        if (!hasCome) status = kStatusCannotUnderstand;
        if (hasCome && isSeen) status = CheckDataSet(walker, request);
    }
    if (status == kStatusSuccess) return m_Sink.End();
    m_Sink.Discard();
    return status;
}

Event StorageProvider::Answer(std::uint8_t context, const DimseCommand& command, std::uint16_t status,
                              const std::string& reason) {
    DimseCommand response = command.MakeResponse(status);
    response.errorComment = reason;
    if (m_Service.SendCommand(context, response) != 0) return Event::Message;
    return Event::Closed;
}
