// libFuzzer: loading from memory, and encoding what came of it.
#include <Korvane/Dicom.h>

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    static DcmDictionary dictionary;
    static const int built = [] {
        std::size_t rowCount;
        const DcmDictionaryRow* const rows = PublicDictionaryRows(rowCount);
        return dictionary.Build(rows, rowCount);
    }();
    if (built == 0) return 0;
    TransferSyntaxCodec codec(&dictionary);
    DICOMFileReader reader(codec);
    const auto dataSet = reader.LoadMemory(bytes, count);
    if (dataSet == nullptr) return 0;
    for (const VR* vr = dataSet->GetFirst(); vr != nullptr; vr = dataSet->GetNext(vr)) ValueText(*vr);
    MemoryOutputBuffer out;
    codec.EncodeStream(count % 2 != 0 ? kExplicitBigEndian : kExplicitLittleEndian, out, dataSet.get());
    return 0;
}
