// The messages of the service: commands out and in.
#include "DcmService.h"
#include "PDataBuffers.h"

int DcmService::SendCommand(std::uint8_t context, const DimseCommand& command) {
    if (m_State != State::Established || FindContext(context) == nullptr) return 0;
    const std::vector<unsigned char> bytes = command.Encode();
    PDataOutputBuffer out(*this, context, PDataTF::kCommand);
    out.Write(bytes.data(), bytes.size());
    return out.Finish();
}

DcmService::Event DcmService::ReceiveCommand(std::uint8_t& context, DimseCommand& command) {
    PDataInputBuffer in(*this, 0, PDataTF::kCommand);
    std::vector<unsigned char> bytes;
    constexpr std::size_t kStep = 1024;
    for (;;) {
        const std::size_t have = bytes.size();
        bytes.resize(have + kStep);
        const std::size_t got = in.ReadSome(bytes.data() + have, kStep);
        bytes.resize(have + got);
        if (got == 0) break;
        if (have == 0)
            SetDeadline(
                GetSocket().GetTimeout());  // the time limit is for the whole command, in however many PDVs it comes
        if (bytes.size() > DimseCommand::kLargest) {
            return BreakOff(kAbortInvalidParameter, "a command set beyond all measure");
        }
    }
    if (in.GetEvent() != Event::Message) return in.GetEvent();
    SetDeadline(0);
    context = m_ContextID;
    if (command.Decode(bytes.data(), bytes.size()) == 0) {
        return BreakOff(kAbortInvalidParameter, "malformed command set");
    }
    return Event::Message;
}

DcmService::Event DcmService::ReceiveResponse(const DimseCommand& request, DimseCommand& response) {
    std::uint8_t context = 0;
    const Event event = ReceiveCommand(context, response);
    if (event != Event::Message) return event;
    if (response.field != (request.field | kResponseBit) || response.messageId != request.messageId ||
        response.HasDataSet()) {
        return BreakOff(kAbortUnexpectedParameter, "a message that is no response to the request");
    }
    return Event::Message;
}

DcmService::Event DcmService::Echo(std::uint16_t& status) {
    const AcceptedContext* const context = FindContext(kVerificationClass);
    if (context == nullptr) {
        m_Error = "the peer does not accept verification";
        return Event::Fault;
    }
    DimseCommand request;
    request.field = kEchoRQ;
    request.messageId = NextMessageId();
    request.sopClass = kVerificationClass;
    if (SendCommand(context->id, request) == 0) return Event::Closed;
    DimseCommand response;
    const Event event = ReceiveResponse(request, response);
    status = response.status;
    return event;
}
