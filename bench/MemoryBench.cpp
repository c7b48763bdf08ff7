// usage: bench_memory    measures the peak memory from files to a volume, and what repeated assembly leaves behind;
// exit
//                        status 1 if either is too much
#include "Series.h"

#include <Korvane/Dicom.h>
#include <Korvane/series/CDicomVolume.h>

#include <cstdio>
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
    return Report("peak of all", ProcessMemory("VmHWM"), needed * 1.05) && met;
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
