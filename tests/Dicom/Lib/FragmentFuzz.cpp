// libFuzzer: any fragments and tables, arranged into any number of frames. However they are arranged, the frames hold
// every byte of the fragments once, in order, and none is empty of fragments.
#include "DataSetBytes.h"

#include <Korvane/Dicom/Lib/pixels/FragmentedFrames.h>

#include <cstdlib>

// The first byte is the number of frames, the second the kind of table (its lowest bit: extended). Fragments follow, each
// behind its length in a byte, the first of them the table.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    if (count < 2) return 0;
    DICOMDataObject set;
    auto* const pixels = new VR(0x7FE0, 0x0010, 0, 0);
    set.Push(pixels);
    std::string all;
    for (std::size_t at = 2; at < count;) {
        const std::size_t length = std::min<std::size_t>(bytes[at], count - at - 1);
        const std::string part(bytes + at + 1, bytes + at + 1 + length);
        const bool isFirst = at == 2;
        if (isFirst && bytes[1] % 2 != 0) set.Push(MakeText(0x7FE0, 0x0001, "OV", part));
        AppendFragment(*pixels, part.data(), static_cast<std::uint32_t>(length));
        if (!isFirst) all += part + std::string(length % 2, '\0');
        at += 1 + length;
    }
    FragmentedFrames frames;
    if (!frames.Arrange(set, bytes[0])) return 0;
    std::string seen;
    std::vector<unsigned char> joined;
    for (std::uint32_t i = 0; i < frames.GetCount(); ++i) {
        const auto frame = frames.GetFrame(i, joined);
        seen.append(frame.begin(), frame.end());
    }
    if (frames.GetCount() != bytes[0] || seen != all || frames.GetTotalBytes() != all.size()) std::abort();
    return 0;
}
