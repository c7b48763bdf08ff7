#include "StorageUser.h"

#include "Dicom/Lib/dataset/ValueText.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/dictionary/TypeCompletion.h"
#include "Dicom/Lib/storage/DICOMFile.h"
#include "Dicom/Lib/stream/FileBuffer.h"
#include "Dicom/Lib/syntax/DataSetWalker.h"
#include "PDataBuffers.h"
#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace {

constexpr char kNoIdentity[] = "no DICOM data set with a SOP class and a SOP instance UID";

std::string SystemReason() {
    return std::generic_category().message(errno);
}

// Whether the stream begins with group 0008 in big-endian order: a data set without meta information.
bool IsBareBigEndian(Buffer& in) {
    const unsigned char* const bytes = in.Peek(2);
    return bytes != nullptr && bytes[0] == 0 && bytes[1] == 8;
}

}  // namespace

int StorageFile::Examine(const std::string& filePath, std::string& error) {
    *this = {};
    path = filePath;
    FileInputBuffer in;
    if (!in.Open(path.c_str())) {
        error = SystemReason();
        return 0;
    }
    SkipPreamble(in);
    TransferSyntaxCodec codec;
    DICOMDataObject meta;
    if (codec.ParseMetaInformation(in, &meta) == 0) {
        error = "damaged meta information";
        return 0;
    }
    transferSyntax = TextOf(meta, tags::TransferSyntaxUID);
    int syntax;
    if (transferSyntax.empty()) {
        syntax = IsBareBigEndian(in) ? kExplicitBigEndian : DetectSyntax(in);
        transferSyntax = NativeSyntaxUid(syntax);
    } else {
        syntax = FindTransferSyntax(
            transferSyntax,
            kExplicitLittleEndian);  // syntaxes that the table does not have are taken for encapsulated ones
    }
    dataOffset = in.GetPosition();
    dataLength = in.GetRemaining() == Buffer::kUnknown ? 0 : in.GetRemaining();
    if (!IsDeflatedTransferSyntax(transferSyntax)) return Walk(syntax, error) ? 1 : 0;
    sopClass = TextOf(meta, tags::MediaStorageSOPClassUID);
    sopInstance = TextOf(meta, tags::MediaStorageSOPInstanceUID);
    if (!sopClass.empty() && !sopInstance.empty()) return 1;
    error = kNoIdentity;
    return 0;
}

// Goes through the data set from element to element; large values are skipped.
bool StorageFile::Walk(int syntax, std::string& error) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(platform::OpenFile(path.c_str(), "rb"), &std::fclose);
    DataSetWalker walker(syntax);
    std::uint64_t position = 0;
    unsigned char piece[4096];
    bool fits = file != nullptr;
    while (fits && position < dataLength) {
        const std::size_t wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(sizeof piece, dataLength - position));
        fits = platform::SeekFile(file.get(), dataOffset + position) == 0 &&
               std::fread(piece, 1, wanted, file.get()) == wanted && walker.Feed(piece, wanted);
        position += wanted + walker.GetSkippable();
        walker.PassOver();
    }
    sopClass = walker.GetSopClass();
    sopInstance = walker.GetSopInstance();
    if (sopClass.empty() || sopInstance.empty()) {
        error = kNoIdentity;
    } else if (position != dataLength || !walker.IsWhole()) {
        error = "the data set is damaged or cut off";
    } else {
        return true;
    }
    return false;
}

std::size_t StorageUser::Propose(const std::vector<StorageFile>& files, std::size_t first) {
    const auto has = [this](const std::string& sopClass, const std::vector<std::string>& syntaxes) {
        const auto& contexts = m_Service.AAssociateRQ::m_Contexts;
        return std::any_of(contexts.begin(), contexts.end(), [&](const ProposedContext& context) {
            return context.abstractSyntax.Get() == sopClass &&
                   std::equal(syntaxes.begin(), syntaxes.end(), context.transferSyntaxes.begin(),
                              context.transferSyntaxes.end(),
                              [](const std::string& a, const UidField& b) { return a == b.Get(); });
        });
    };
    static const std::vector<std::string> kFallback = {std::string(kExplicitLittleEndianUid),
                                                       std::string(kImplicitLittleEndianUid)};
    m_Service.AAssociateRQ::m_Contexts.clear();
    std::size_t index = first;
    for (; index < files.size(); ++index) {
        const StorageFile& file = files[index];
        std::vector<std::vector<std::string>> wanted = {{file.transferSyntax}};
        if (IsNativeTransferSyntax(file.transferSyntax) || CanDecode(file)) wanted.push_back(kFallback);
        std::erase_if(wanted, [&](const auto& syntaxes) { return has(file.sopClass, syntaxes); });
        if (m_Service.AAssociateRQ::m_Contexts.size() + wanted.size() > kMostContexts) break;
        for (const auto& syntaxes : wanted) m_Service.Propose(file.sopClass, syntaxes);
    }
    return index;
}

bool StorageUser::CanDecode(const StorageFile& file) const {
    return m_pDecoder != nullptr && m_pDecoder->CanDecode(file.transferSyntax);
}

// The agreed context with the file's own syntax; for what can be encoded anew else one with an uncompressed syntax.
// Null where there is none.
const AcceptedContext* StorageUser::ChooseContext(const StorageFile& file) const {
    const AcceptedContext* const own = m_Service.FindContext(file.sopClass, file.transferSyntax);
    if (own != nullptr || !(IsNativeTransferSyntax(file.transferSyntax) || CanDecode(file))) return own;
    for (const std::string_view uid : {kExplicitLittleEndianUid, kImplicitLittleEndianUid, kExplicitBigEndianUid}) {
        const AcceptedContext* const other = m_Service.FindContext(file.sopClass, uid);
        if (other != nullptr) return other;
    }
    return nullptr;
}

StorageResult StorageUser::Send(const StorageFile& file) {
    StorageResult result;
    if (m_Service.GetState() != DcmService::State::Established) {
        result.error = m_Service.GetError().empty() ? "there is no association" : m_Service.GetError();
        return result;
    }
    const AcceptedContext* const found = ChooseContext(file);
    if (found == nullptr) {
        result.error =
            "the peer does not accept SOP class " + file.sopClass + " in transfer syntax " + file.transferSyntax;
        return result;
    }
    const AcceptedContext context = *found;
    DimseCommand request;
    request.field = kStoreRQ;
    request.messageId = m_Service.NextMessageId();
    request.sopClass = file.sopClass;
    request.sopInstance = file.sopInstance;
    request.priority = m_Priority;
    request.dataSetType = 1;
    const bool isEven =
        file.dataLength % 2 == 0 || IsDeflatedTransferSyntax(file.transferSyntax);  // a deflated stream is padded below
    const bool asItLies = context.transferSyntax == file.transferSyntax && isEven;
    const bool sent =
        asItLies ? SendBytes(file, context.id, request, result) : SendEncoded(file, context, request, result);
    if (sent) AwaitAnswer(request, result);
    if (!result.stored && result.error.empty()) result.error = m_Service.GetError();
    return result;
}

bool StorageUser::Stop(const std::string& why, StorageResult& result) {
    result.error = why;
    m_Service.Abort();
    return false;
}

bool StorageUser::SendBytes(const StorageFile& file, std::uint8_t context, const DimseCommand& request,
                            StorageResult& result) {
    platform::InputFile in;
    if (!in.Open(file.path.c_str())) {
        result.error = SystemReason();
        return false;
    }
    std::vector<unsigned char> head(static_cast<std::size_t>(file.dataOffset));
    if (in.Read(head.data(), head.size()) != head.size()) {
        result.error = "the file is shorter than it was";
        return false;
    }
    if (m_Service.SendCommand(context, request) == 0) return false;
    PDataOutputBuffer out(m_Service, context, 0);
    for (;;) {
        std::size_t capacity;
        unsigned char* const room = out.GetRoom(capacity);
        const std::size_t got = in.Read(room, capacity);
        out.Commit(got);
        if (got == 0 || m_Service.GetState() != DcmService::State::Established) break;
        if (m_Progress && m_Progress(out.GetCount())) return Stop("stopped", result);
    }
    result.bytes = out.GetCount();
    // The message is not finished, so that the peer cannot take a part of the data set for the whole.
    if (in.HasFailed() || (file.dataLength > 0 && file.dataLength != result.bytes)) {
        return m_Service.GetState() == DcmService::State::Established && Stop("the file could not be read", result);
    }
    if (result.bytes % 2 != 0) out.WriteZeros(1);  // behind a deflated stream (PS3.5 A.5)
    return out.Finish() != 0;
}

// The data set as it lies in the file; null where it cannot be read whole.
std::unique_ptr<DICOMDataObject> StorageUser::Read(const StorageFile& file) {
    DICOMFileReader reader(m_Codec);
    auto dataSet = reader.Load(file.path.c_str());
    const bool isRead = dataSet != nullptr && reader.IsComplete() &&
                        reader.GetSyntax() == FindTransferSyntax(file.transferSyntax, reader.GetSyntax());
    if (isRead) return dataSet;
    return nullptr;
}

bool StorageUser::SendEncoded(const StorageFile& file, const AcceptedContext& context, const DimseCommand& request,
                              StorageResult& result) {
    const bool decodes = !IsNativeTransferSyntax(file.transferSyntax) && IsNativeTransferSyntax(context.transferSyntax);
    const auto dataSet = decodes ? m_pDecoder->Read(file, result.error) : Read(file);
    if (dataSet == nullptr) {
        if (result.error.empty()) {
            result.error = "the data set is damaged, or cannot be read to encode it in " + context.transferSyntax;
        }
        return false;
    }
    result.decoded = decodes;
    const int syntax = FindTransferSyntax(context.transferSyntax, kExplicitLittleEndian);
    if (syntax != kImplicitLittleEndian) CompleteTypes(*dataSet, m_Codec.GetDictionary());
    if (m_Service.SendCommand(context.id, request) == 0) return false;
    PDataOutputBuffer out(m_Service, context.id, 0);
    const bool encoded = m_Codec.EncodeStream(syntax, out, dataSet.get()) != 0 && out.Flush();
    result.bytes = out.GetCount();
    if (m_Service.GetState() != DcmService::State::Established) return false;
    if (!encoded) return Stop("the data set cannot be encoded in transfer syntax " + context.transferSyntax, result);
    if (m_Progress && m_Progress(result.bytes)) return Stop("stopped", result);
    return out.Finish() != 0;
}

void StorageUser::AwaitAnswer(const DimseCommand& request, StorageResult& result) {
    DimseCommand response;
    if (m_Service.ReceiveResponse(request, response) != DcmService::Event::Message) return;
    result.status = response.status;
    result.stored = IsStored(response.status);
    if (result.stored) return;
    result.error = DimseStatusText(response.status);
    if (!response.errorComment.empty()) result.error += ": " + Printable(response.errorComment);
}
