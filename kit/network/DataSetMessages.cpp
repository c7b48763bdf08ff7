#include "DataSetMessages.h"

#include "../dataset/Toolkit.h"

#include "Dicom/Lib/network/PDataBuffers.h"

#include <utility>
#include <vector>

namespace korvane {

namespace {

constexpr std::size_t kLargest = std::size_t{16} << 20;
constexpr std::size_t kStep = std::size_t{16} << 10;

}  // namespace

bool SendDataSet(DcmService& service, const AcceptedContext& context, const DataSet& dataSet) {
    const auto drained = dataSet.Clone().ReleaseToolkit();
    CompleteTypes(*drained, &PublicDictionary());
    DictionaryCodec codec;
    PDataOutputBuffer out(service, context.id, 0);
    const int syntax = FindTransferSyntax(context.transferSyntax, kImplicitLittleEndian);
    return codec.EncodeStream(syntax, out, drained.get()) != 0 && out.Finish() != 0;
}

std::unique_ptr<DICOMDataObject> ParseDataSet(const std::string& transferSyntax, std::span<const unsigned char> bytes) {
    const int syntax = FindTransferSyntax(transferSyntax, kImplicitLittleEndian);
    auto parsed = std::make_unique<DICOMDataObject>();
    DictionaryCodec codec;
    MemoryInputBuffer buffer(bytes.data(), bytes.size());
    return codec.ParseStream(syntax, buffer, parsed.get(), kParseAll) != 0 ? std::move(parsed) : nullptr;
}

ReceivedDataSet ReceiveDataSet(DcmService& service, std::uint8_t contextId) {
    const std::string transferSyntax = service.FindContext(contextId)->transferSyntax;
    ReceivedDataSet received;
    PDataInputBuffer in(service, contextId, 0);
    std::vector<unsigned char> whole;
    for (std::size_t got = 1; got > 0 && whole.size() <= kLargest;) {
        const std::size_t have = whole.size();
        whole.resize(have + kStep);
        got = in.ReadSome(whole.data() + have, kStep);
        whole.resize(have + got);
    }
    received.bytes = whole.size();
    received.event = in.GetEvent();
    received.isTooLarge = whole.size() > kLargest;
    if (received.event != DcmService::Event::Message || received.isTooLarge) return received;
    received.dataSet = ParseDataSet(transferSyntax, whole);
    return received;
}

}  // namespace korvane
