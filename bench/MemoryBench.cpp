// usage: bench_memory    measures the peak memory from files to a volume, what repeated assembly leaves behind, and what
//                        is kept with the survivors of a batch; exit status 1 if one is too much
#include "Series.h"

#include <Korvane/Dicom.h>
#include <Korvane/series/CDicomVolume.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr double kMegabyte = 1024 * 1024;

// This process's memory in bytes: "VmRSS" for now, "VmHWM" for the highest so far. 0 where the system does not say.
double ProcessMemory(const std::string& key) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == key + ":" && status >> kilobytes) return kilobytes * 1024;
    }
    return 0;
}

bool Report(const char* what, double is, double most) {
    const bool met = is <= most;
    std::printf("%-28s %9.1f MB, at most %9.1f MB  %s\n", what, is / kMegabyte, most / kMegabyte,
                met ? "met" : "MISSED");
    return met;
}

// A stream as made by scanners: some hundred short elements, and a long private one of so many bytes.
std::vector<unsigned char> HeaderStream(std::uint16_t longBytes) {
    std::vector<unsigned char> bytes = {0x07, 0x00, 0x01, 0x10, 'O', 'B', 0, 0, 0, 0, 0, 0};
    bytes[8] = static_cast<unsigned char>(longBytes & 0xFF);
    bytes[9] = static_cast<unsigned char>(longBytes >> 8);
    bytes.insert(bytes.end(), longBytes, 0);
    for (std::uint16_t group = 0x0009; group < 0x0031; group = static_cast<std::uint16_t>(group + 2)) {
        for (std::uint16_t element = 0x1000; element < 0x1008; ++element) {
            const auto length = static_cast<std::uint16_t>(4 + (group * 7 + element * 13) % 48 * 2);
            for (const std::uint16_t word : {group, element, std::uint16_t{0x4F4C}, length}) {
                bytes.push_back(static_cast<unsigned char>(word & 0xFF));
                bytes.push_back(static_cast<unsigned char>(word >> 8));
            }
            bytes.insert(bytes.end(), length, ' ');
        }
    }
    return bytes;
}

std::unique_ptr<DICOMDataObject> ParsedHeader(const std::vector<unsigned char>& bytes) {
    auto header = std::make_unique<DICOMDataObject>();
    MemoryInputBuffer buffer(bytes.data(), bytes.size());
    TransferSyntaxCodec().ParseStream(kExplicitLittleEndian, buffer, header.get(), kParseAll);
    return header;
}

// What stays of a batch keeps little else: one header of 20.
bool MeasureHeaders(std::uint16_t longBytes) {
    constexpr int kKept = 1000;
    constexpr int kBatch = 20;
    const std::vector<unsigned char> stream = HeaderStream(longBytes);
    double before = ProcessMemory("VmRSS");
    std::vector<std::unique_ptr<DICOMObject>> kept;
    {
        const auto header = ParsedHeader(stream);
        for (int i = 0; i < kKept; ++i) kept.emplace_back(header->Clone(true));
    }
    const double clones = ProcessMemory("VmRSS") - before;
    kept.clear();
    before = ProcessMemory("VmRSS");
    std::vector<std::unique_ptr<DICOMObject>> batch;
    for (int i = 0; i < kKept * kBatch; ++i) batch.push_back(ParsedHeader(stream));
    for (int i = 0; i < kKept * kBatch; i += kBatch) kept.push_back(std::move(batch[static_cast<std::size_t>(i)]));
    batch.clear();
    std::printf("a long value of %u bytes in each header:\n", unsigned{longBytes});
    const bool met = Report("1,000 headers of 20,000", ProcessMemory("VmRSS") - before, clones * 2);
    for (int i = 0; i < kKept * kBatch; ++i) {
        auto header = ParsedHeader(stream);
        if (i % kBatch == 0) kept.push_back(std::move(header));
    }
    return Report("1,000 more, one by one", ProcessMemory("VmRSS") - before, clones * 3.5) && met;
}

// The same of images, one of 16.
bool MeasureImages() {
    constexpr std::uint32_t kImage = 512 * 1024;
    const double before = ProcessMemory("VmRSS");
    std::vector<std::unique_ptr<VR>> images;
    for (int i = 0; i < 1600; ++i) {
        images.push_back(std::make_unique<VR>(0x7FE0, 0x0010, kImage, 1));
        std::memset(images.back()->m_pData, i, kImage);
    }
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (i % 16 != 0) images[i].reset();
    }
    return Report("52 MB of pixels of 839 MB", ProcessMemory("VmRSS") - before, 1.5 * 100 * kImage);
}

bool Measure() {
    constexpr int kRounds = 20;
    const Series series;
    std::vector<std::unique_ptr<DICOMDataObject>> dataSets;
    std::vector<DICOMDataObject*> list;
    for (const std::string& path : series.GetFiles()) {
        dataSets.emplace_back(LoadDICOMFile(path.c_str()));
        list.push_back(dataSets.back().get());
    }
    CDicomVolume volume;
    volume.SetIODList(list, nullptr);
    volume.Alloc(true);
    const double needed = static_cast<double>(series.GetFileBytes()) + static_cast<double>(Series::kVolumeBytes);
    bool met = Report("peak of the road", ProcessMemory("VmHWM"), needed * 1.05);

    double early = 0;
    for (int round = 1; round <= kRounds; ++round) {
        volume.SetIODList(list, nullptr);
        volume.Alloc(true);
        if (round == 2) early = ProcessMemory("VmRSS");
    }
    met = Report("growth in 20 assemblies", ProcessMemory("VmRSS") - early, kMegabyte) && met;
    met = Report("peak of all", ProcessMemory("VmHWM"), needed * 1.05) && met;
    dataSets.clear();
    met = MeasureHeaders(0) && met;
    met = MeasureHeaders(16 * 1024) && met;
    return MeasureImages() && met;
}

}  // namespace

int main() {
    try {
        if (ProcessMemory("VmHWM") == 0) {
            std::puts("bench_memory: this system does not tell a process's memory");
            return 0;
        }
        return Measure() ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_memory: %s\n", failure.what());
        return 1;
    }
}
