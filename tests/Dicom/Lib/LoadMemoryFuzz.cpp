// libFuzzer: loading from memory, and encoding what came of it. An empty corpus folder is seeded first.
#include "DataSetBytes.h"

#include <filesystem>

namespace {

void WriteSeed(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::filesystem::path corpus = (*arguments)[*argumentCount - 1];
    if (!std::filesystem::is_directory(corpus) || !std::filesystem::is_empty(corpus)) return 0;
    WriteSeed(corpus / "explicit", SmallFile(true));
    WriteSeed(corpus / "implicit", SmallFile(false));
    WriteSeed(corpus / "big", DataSetBytes(true)
                                  .Text(std::string(128, '\0'))
                                  .Text("DICM")
                                  .Append(DataSetBytes().Short(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.2 ").Get())
                                  .Short(0x0028, 0x0010, "US", "ab")
                                  .Long(0x7FE0, 0x0010, "OW", 4)
                                  .Text("abcd")
                                  .Get());
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
