// libFuzzer: a file whose large values stay in it gives what it gives when it is read whole, and its frames can be read
// one by one, whatever offset tables and numbers of frames say. An empty corpus folder is seeded first.
#include "../../FuzzCorpus.h"
#include "MadeData.h"

#include <Korvane/Dicom/Lib/pixels/CodecManager.h>
#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/dataset/Frames.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

using namespace korvane;

namespace {

constexpr std::uint32_t kSmallest = 256;

DataSet Made(unsigned bits, unsigned frames) {
    DataSet set;
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.7");
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.Set("Rows", 8);
    set.Set("Columns", 8);
    set.Set("BitsAllocated", bits);
    set.Set("NumberOfFrames", frames);
    set.SetBytes("IconImageSequence[0].PixelData", std::vector<unsigned char>(300, 1), "OW");
    set.SetBytes("0011,1001", std::vector<unsigned char>(301, 2), "UN");
    set.SetBytes("PixelData", std::vector<unsigned char>(std::size_t{8} * bits * frames, 3), "OW");
    return set;
}

// Three frames in five fragments, with either table.
DataSet Compressed(bool isExtended) {
    DataSet set = Made(8, 3);
    set.Delete("PixelData");
    set.Set("TransferSyntaxUID", "1.2.840.10008.1.2.4.90");
    std::vector<unsigned char> table(isExtended ? 24 : 12);
    table[isExtended ? 8 : 4] = 50;
    table[isExtended ? 16 : 8] = 58;
    table[isExtended ? 17 : 9] = 1;
    if (isExtended) set.SetBytes("ExtendedOffsetTable", table, "OV");
    std::vector<std::vector<unsigned char>> fragments(1);
    if (!isExtended) fragments.front() = table;
    for (const std::size_t length : {14U, 20U, 256U, 30U, 2U}) fragments.emplace_back(length, 4);
    return WithFragments(std::move(set), fragments);
}

std::string SavedOrRefused(const DataSet& set) {
    try {
        return Saved(set);
    } catch (const Error& error) {
        return error.what();
    }
}

// All that is told of a data set.
std::string Facts(const DataSet& set) {
    std::string facts = set.GetReport().complete ? "whole\n" : "cut\n";
    for (const Finding& finding : set.GetReport().findings) facts += finding.text + '\n';
    return facts + set.ToJson(true) + SavedOrRefused(set);
}

void ReadFrames(const std::string& path) {
    constexpr std::size_t kMost = 20;
    const FrameReader frames(path);
    for (std::size_t i = 0; i < std::min(frames.GetCount(), kMost); ++i) frames.ReadStored(i);
    frames.ReadStored(frames.GetCount() - 1);
    if (frames.Read(frames.GetCount() - 1).Bytes("PixelData").size() > 0xFFFFFFF) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    // The fuzzer goes on looking at the counters of a module that was unloaded: the codecs stay.
    static CodecManager s_codecs;
    s_codecs.GetCodec("1.2.840.10008.1.2.5");
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    Made(16, 2).Save(corpus + "/explicit");
    Made(1, 9).Save(corpus + "/implicit", {.syntax = "implicit"});
    Made(16, 3).Save(corpus + "/big", {.syntax = "big"});
    Compressed(false).Save(corpus + "/basic");
    Compressed(true).Save(corpus + "/extended");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    static const std::string path =
        std::filesystem::temp_directory_path() / ("korvane-fuzz-" + std::to_string(std::random_device()()));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(count));
    try {
        const DataSet whole = DataSet::Read(path);
        if (Facts(DataSet::Read(path, {.leaveLarger = kSmallest})) != Facts(whole)) std::abort();
        ReadFrames(path);
    } catch (const Error&) {
    }
    std::filesystem::remove(path);
    return 0;
}
