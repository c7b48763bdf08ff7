// libFuzzer: data sets of any form, fragments and tables through Decode and Convert, with the bundled module. What lossless
// codecs make must decode to the same.
#include "../../FuzzCorpus.h"
#include "DataSetBytes.h"

#include <Korvane/platform/DynamicModule.h>

#include <cstdlib>

namespace {

constexpr const char* kSyntaxes[] = {"1.2.840.10008.1.2.5",    "1.2.840.10008.1.2.4.70", "1.2.840.10008.1.2.4.57",
                                     "1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.4.51", "1.2.840.10008.1.2.4.80",
                                     "1.2.840.10008.1.2.4.81", "1.2.840.10008.1.2.4.90", "1.2.840.10008.1.2.4.91"};
constexpr std::size_t kHeader = 8;

// The header is: syntax, rows, columns, frames, samples and their form, bits allocated, bits stored, length of the offset table.
std::unique_ptr<DICOMDataObject> Image(const std::uint8_t* header) {
    auto set = std::make_unique<DICOMDataObject>();
    const std::uint16_t samples = (header[4] & 1) != 0 ? 3 : 1;
    const std::uint16_t allocated = header[5] % 3 == 0 ? 8 : (header[5] % 3 == 1 ? 16 : 32);
    const auto stored = static_cast<std::uint16_t>(1 + header[6] % allocated);
    set->Push(MakeText(0x0002, 0x0010, "UI", kSyntaxes[header[0] % std::size(kSyntaxes)]));
    set->Push(MakeText(0x0028, 0x0004, "CS", samples == 1 ? "MONOCHROME2" : "YBR_FULL_422"));
    set->Push(MakeText(0x0028, 0x0008, "IS", std::to_string(header[3])));
    const std::pair<std::uint16_t, int> numbers[] = {{0x0002, samples},    {0x0006, header[4] >> 1 & 1},
                                                     {0x0010, header[1]},  {0x0011, header[2]},
                                                     {0x0100, allocated},  {0x0101, stored},
                                                     {0x0102, stored - 1}, {0x0103, header[4] >> 2 & 1}};
    for (const auto& [element, value] : numbers) {
        set->Push(MakeU16(0x0028, element, static_cast<std::uint16_t>(value)));
    }
    return set;
}

// Behind the header: the table, then fragments of 2-byte lengths.
void PushFragments(DICOMObject& set, const std::uint8_t* bytes, std::size_t count) {
    auto* const pixels = new VR(0x7FE0, 0x0010, 0, 0);
    std::size_t length = std::min<std::size_t>(bytes[7], count - kHeader);
    const bool isExtended = (bytes[4] & 8) != 0;
    if (isExtended) set.Push(MakeText(0x7FE0, 0x0001, "OV", std::string(bytes + kHeader, bytes + kHeader + length)));
    for (std::size_t at = kHeader;;) {
        AppendFragment(*pixels, bytes + at, static_cast<std::uint32_t>(length));
        at += length;
        if (at + 2 > count) break;
        length = std::min<std::size_t>(platform::LoadLittle<std::uint16_t>(bytes + at), count - at - 2);
        at += 2;
    }
    set.Push(pixels);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    if (platform::OpenModule("DcmCodec.dll") == nullptr) std::abort();  // stays: libFuzzer counts in it to the end
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    CodecManager manager;
    for (std::uint8_t syntax = 0; syntax < 2; ++syntax) {
        Bytes seed = {syntax, 4, 4, 2, 0, 1, 11, 8};
        const auto set = Image(seed.data());
        set->Push(MakeText(0x7FE0, 0x0010, "OW", std::string(32, '\1') + std::string(32, '\2')));
        if (manager.Convert(set.get(), kSyntaxes[syntax]) == 0) std::abort();
        for (std::uint32_t i = 0; i < 3; ++i) {
            const VR& fragment = *GetFragment(*set->GetVR(0x7FE0, 0x0010), i);
            if (i > 0) seed.insert(seed.end(), {static_cast<unsigned char>(fragment.m_Length), 0});
            seed.insert(seed.end(), fragment.m_pData, fragment.m_pData + fragment.m_Length);
        }
        WriteBytes(corpus + "/seed" + std::to_string(syntax), seed);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    if (count < kHeader) return 0;
    static CodecManager manager;
    const auto set = Image(bytes);
    PushFragments(*set, bytes, count);
    if (manager.Decode(set.get()) == 0) return 0;
    for (const char* const syntax : {kSyntaxes[0], kSyntaxes[1]}) {
        const std::string pixels(set->GetVR(0x7FE0, 0x0010)->GetText());
        if (manager.Convert(set.get(), syntax) == 0) continue;
        if (manager.Decode(set.get()) == 0 || set->GetVR(0x7FE0, 0x0010)->GetText() != pixels) std::abort();
    }
    return 0;
}
