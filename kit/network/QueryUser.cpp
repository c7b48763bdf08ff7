#include "QueryUser.h"

#include "../dataset/Toolkit.h"

#include "Dicom/Lib/network/PDataBuffers.h"

namespace korvane {

namespace {

using Event = DcmService::Event;

constexpr std::size_t kLargestIdentifier = std::size_t{16} << 20;
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

bool IsSingleValue(const std::string& value) {
    return !value.empty() && value.find_first_of("*?\\") == std::string::npos;
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
    const int syntax = FindTransferSyntax(context.transferSyntax, kImplicitLittleEndian);
    const auto drained = identifier.Clone().ReleaseToolkit();
    CompleteTypes(*drained, &PublicDictionary());
    bool sent = service.SendCommand(context.id, m_Request) != 0;
    if (sent) {
        DictionaryCodec codec;
        PDataOutputBuffer out(service, context.id, 0);
        sent = codec.EncodeStream(syntax, out, drained.get()) != 0 && out.Finish() != 0;
    }
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
    const AcceptedContext* const context = service.FindContext(m_Context);
    const int syntax = FindTransferSyntax(context->transferSyntax, kImplicitLittleEndian);
    PDataInputBuffer in(service, m_Context, 0);
    std::vector<unsigned char> whole;
    constexpr std::size_t kStep = std::size_t{16} << 10;
    for (std::size_t got = 1; got > 0 && whole.size() <= kLargestIdentifier;) {
        const std::size_t have = whole.size();
        whole.resize(have + kStep);
        got = in.ReadSome(whole.data() + have, kStep);
        whole.resize(have + got);
    }
    m_Watch.StopIfAsked();
    if (in.GetEvent() != Event::Message) throw m_Peer.MakeError();
    auto parsed = std::make_unique<DICOMDataObject>();
    DictionaryCodec codec;
    MemoryInputBuffer buffer(whole.data(), whole.size());
    if (whole.size() > kLargestIdentifier || codec.ParseStream(syntax, buffer, parsed.get(), kParseAll) == 0) {
        service.Abort();
        throw Error(ErrorKind::Damaged, m_Peer.GetName() + ": the data set of an answer is damaged, or too large");
    }
    bytes += whole.size();
    return DataSet::FromToolkit(std::move(parsed));
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
