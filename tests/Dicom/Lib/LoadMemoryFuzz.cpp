// libFuzzer: loading from memory, and encoding what came of it. An empty corpus folder is seeded first.
#include "../../FuzzCorpus.h"
#include "DataSetBytes.h"

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    WriteBytes(corpus + "/explicit", SmallFile(true));
    WriteBytes(corpus + "/implicit", SmallFile(false));
    WriteBytes(corpus + "/big",
               Join({Text(std::string(128, '\0')), Text("DICM"),
                     Join({le.Short(0x0002, 0x0010, "UI", std::string(kExplicitBigEndianUid) + " ")}),
                     be.Short(0x0028, 0x0010, "US", "ab"), be.Long(0x7FE0, 0x0010, "OW", 4), Text("abcd")}));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    TransferSyntaxCodec codec(&PublicDictionary());
    DICOMFileReader reader(codec);
    const auto dataSet = reader.LoadMemory(bytes, count);
    if (dataSet == nullptr) return 0;
    for (const VR* vr = dataSet->GetFirst(); vr != nullptr; vr = dataSet->GetNext(vr)) ValueText(*vr);
    MemoryOutputBuffer out;
    codec.EncodeStream(count % 2 != 0 ? kExplicitBigEndian : kExplicitLittleEndian, out, dataSet.get());
    return 0;
}
