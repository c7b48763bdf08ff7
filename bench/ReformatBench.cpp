// usage: bench_reformat [--rounds=N] [--size=N] [--slices=N] [--wide=0]
//
// Whole volumes of 16-bit voxels in every view plane, beside `memcpy` of as many bytes into fresh memory. Each round
// runs everything once, so that what disturbs the machine disturbs all; ratios are medians of the ratios within a
// round. On one thread processor time counts, on two the time that passes; GB/s are of what is read and written, in the best round.
// Fails when an aim is missed.
#include "RowFile.h"

#include <Korvane/platform/memory/Memory.h>
#include <Korvane/slicing/CVolumeReformatter.h>
#include <Korvane/slicing/StraightStack.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Holder = std::shared_ptr<void>;

struct Row {
    std::string name;
    double most;  ///< the most that time / the limit's time may be; 0 for no aim
    std::function<Holder(int threads)> job;
    std::size_t bytes;  ///< of the result
    std::size_t moved;  ///< read and written
    std::vector<double> seconds = {};
    std::vector<double> secondsOfTwo = {};
};

/// Calls `work` for the parts of 0 to `count`, as many as there are threads or `parts` of them, each on the next thread that is free.
void InParts(int threads, int count, int parts, const std::function<void(int first, int end)>& work) {
    std::atomic<int> next = 0;
    const auto startOf = [&](int part) { return static_cast<int>(std::int64_t{count} * part / parts); };
    const auto take = [&] {
        for (int part = next++; part < parts; part = next++) work(startOf(part), startOf(part + 1));
    };
    std::vector<std::thread> others;
    for (int thread = 1; thread < threads; ++thread) others.emplace_back(take);
    take();
    for (std::thread& other : others) other.join();
}

constexpr int kParts = 64;  // of a result, as the Kit has it

struct Sizes {
    int rounds = 9;
    int size = 512;
    int slices = 300;
    int wide = 1;
};

Holder Share(CVolume* volume) {
    if (volume == nullptr) std::exit(2);
    return {volume, [](CVolume* last) { last->Delete(); }};
}

// Makes a volume with 0.7 mm between voxels. Planes are 1 mm apart (`even`), or 0.5 and 1.5 mm in turn, and each lies `tilt` mm
// further along its columns than the one before.
CVolume* MakeSource(const Sizes& sizes, bool even, float tilt = 0) {
    CVolume* const volume = CVolume::New();
    volume->Init(CVolume::PT_SHORT, sizes.size, sizes.size, sizes.slices, 1);
    volume->Alloc(true);
    float space[4] = {0.7F, 0.7F, 1, 0};
    volume->SetSpacing(space);
    auto* voxel = static_cast<std::int16_t*>(volume->GetVolumePt());
    std::uint32_t noise = 1;
    for (int k = 0; k < sizes.slices; ++k) {
        volume->GetPlane(k)->m_Org[1] = tilt * static_cast<float>(k);
        volume->GetPlane(k)->m_Org[2] = static_cast<float>(k) + (even || k % 2 == 0 ? 0 : -0.5F);
        for (int i = 0; i < sizes.size * sizes.size; ++i) {
            noise = noise * 1664525U + 1013904223U;
            *voxel++ = static_cast<std::int16_t>(noise >> 20);
        }
    }
    volume->UpdateZInterpArray();
    return volume;
}

std::size_t GetBytes(CVolume& volume) {
    int d[4];
    volume.GetDimensions(d);
    return static_cast<std::size_t>(d[0]) * static_cast<std::size_t>(d[1]) * static_cast<std::size_t>(d[2]) * 2;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Time divided by that of the limit, both for the same number of bytes: the limit was measured on the source's size.
double Ratio(const Row& row, const Row& limit) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < row.seconds.size(); ++i) ratios.push_back(row.seconds[i] / limit.seconds[i]);
    return Median(ratios) * static_cast<double>(limit.bytes) / static_cast<double>(row.bytes);
}

void CopyInto(void* to, CVolume& source, int threads) {
    constexpr int kPages = 1 << 16;  // bytes
    const std::size_t bytes = GetBytes(source);
    const int blocks = static_cast<int>((bytes + kPages - 1) / kPages);
    InParts(threads, blocks, threads, [&](int first, int end) {
        const std::size_t from = static_cast<std::size_t>(first) * kPages;
        const std::size_t last = std::min(static_cast<std::size_t>(end) * kPages, bytes);
        std::memcpy(static_cast<char*>(to) + from, static_cast<const char*>(source.GetVolumePt()) + from, last - from);
    });
}

Holder CopyPlain(CVolume& source, int threads) {
    void* const fresh = std::malloc(GetBytes(source));
    if (fresh == nullptr) std::exit(2);
    CopyInto(fresh, source, threads);
    return {fresh, std::free};
}

Holder CopyHuge(CVolume& source, int threads) {
    void* const fresh = platform::AllocateBuffer(GetBytes(source));
    CopyInto(fresh, source, threads);
    return {fresh, platform::FreeBuffer};
}

void AddViews(std::vector<Row>& rows, CVolume& source, bool resampled, bool wide) {
    static constexpr struct {
        const char* name;
        VolumePlane plane;
        bool flip1;
        double most;
    } kViews[] = {
        {"x,y;z axial", VP_XY, false, 1.3},      {"x,y;z reversed rows", VP_XY, true, 1.3},
        {"x,z;y coronal", VP_XZ, false, 1.3},    {"y,z;x sagittal", VP_YZ, false, 1.6},
        {"z,y;x sagittal", VP_ZY, false, 1.6},   {"z,x;y transposed", VP_ZX, false, 1.6},
        {"y,x;z transposed", VP_YX, false, 1.6},
    };
    for (const auto& view : kViews) {
        CVolumeReformatter reformatter;
        reformatter.AllowWideVectors(wide);
        if (resampled) reformatter.SetZSampling(CVolumeReformatter::ZS_ALWAYS);
        auto job = [&source, &view, reformatter](int threads) mutable {
            const auto run = [threads](int blocks, const CVolumeReformatter::Work& work) {
                InParts(threads, blocks, std::min(blocks, kParts), work);
                return true;
            };
            return Share(threads == 1 ? reformatter.Reformat(source, view.plane, view.flip1, true)
                                      : reformatter.ReformatInBlocks(source, view.plane, view.flip1, true, run));
        };
        const Holder result = job(1);
        const std::size_t bytes = GetBytes(*static_cast<CVolume*>(result.get()));
        rows.push_back({view.name + std::string(resampled ? ", z resampled" : ""), resampled ? 3 : view.most, job,
                        bytes, GetBytes(source) + bytes});
    }
}

/// A tilted stack made straight.
void AddStraightening(std::vector<Row>& rows, CVolume& tilted, const std::string& name) {
    const auto job = [&tilted](int threads) {
        const auto run = [threads](int planes, const StraightenWork& work) {
            InParts(threads, planes, std::min(planes, kParts), work);
        };
        StraightenReport report;
        return Share(StraightenStackInBlocks(tilted, {}, report, run));
    };
    const Holder result = job(1);
    const std::size_t bytes = GetBytes(*static_cast<CVolume*>(result.get()));
    rows.push_back({name, 0, job, bytes, GetBytes(tilted) + bytes});
}

/// Of what is read and written, in the best round.
double GigabytesPerSecond(const Row& row, const std::vector<double>& seconds) {
    return static_cast<double>(row.moved) / *std::min_element(seconds.begin(), seconds.end()) / 1e9;
}

void Print(const std::vector<Row>& rows, int& missed) {
    std::printf("%-34s %9s %9s %9s %9s %9s %9s   %s\n", "", "ms", "/ memcpy", "/ huge", "GB/s", "ms of two", "GB/s",
                "aim");
    for (const Row& row : rows) {
        const double ratio = Ratio(row, rows[0]);
        std::printf("%-34s %9.1f %9.2f %9.2f %9.1f %9.1f %9.1f", row.name.c_str(), Median(row.seconds) * 1e3, ratio,
                    Ratio(row, rows[1]), GigabytesPerSecond(row, row.seconds), Median(row.secondsOfTwo) * 1e3,
                    GigabytesPerSecond(row, row.secondsOfTwo));
        if (row.most > 0) {
            const bool met = ratio <= row.most;
            std::printf("   <= %.1f %s", row.most, met ? "met" : "MISSED");
            missed += met ? 0 : 1;
        }
        std::printf("\n");
    }
    std::printf(
        "\nProcessor time, one thread, results freed outside the clock. Ratios: to memcpy of as many bytes as the "
        "result has into\nfresh memory from malloc; huge: from the library's own allocator, which asks for huge "
        "pages.\n");
}

Sizes ReadArguments(int argc, char** argv) {
    Sizes sizes;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const auto take = [&argument](std::string_view name, int& value) {
            if (argument.starts_with(name)) {
                std::from_chars(argument.data() + name.size(), argument.data() + argument.size(), value);
            }
        };
        take("--rounds=", sizes.rounds);
        take("--size=", sizes.size);
        take("--slices=", sizes.slices);
        take("--wide=", sizes.wide);
    }
    return sizes;
}

}  // namespace

int main(int argc, char** argv) {
    const Sizes sizes = ReadArguments(argc, argv);
    const Holder even = Share(MakeSource(sizes, true));
    const Holder uneven = Share(MakeSource(sizes, false));
    CVolume& source = *static_cast<CVolume*>(even.get());
    std::vector<Row> rows;
    const std::size_t bytes = GetBytes(source);
    rows.push_back({"memcpy", 0, [&source](int threads) { return CopyPlain(source, threads); }, bytes, 2 * bytes});
    rows.push_back(
        {"memcpy, huge pages", 0, [&source](int threads) { return CopyHuge(source, threads); }, bytes, 2 * bytes});
    const Holder warm = CopyHuge(source, 1);
    rows.push_back({"memcpy, pages at hand", 0,
                    [&](int threads) {
                        CopyInto(warm.get(), source, threads);
                        return Holder();
                    },
                    bytes, 2 * bytes});
    constexpr std::size_t kCopies = 3;  // the first rows
    AddViews(rows, source, false, sizes.wide != 0);
    AddViews(rows, *static_cast<CVolume*>(uneven.get()), true, sizes.wide != 0);
    const Holder tilted = Share(MakeSource(sizes, true, 0.3F));
    const Holder tiltedUneven = Share(MakeSource(sizes, false, 0.3F));
    AddStraightening(rows, *static_cast<CVolume*>(tilted.get()), "tilted stack made straight");
    AddStraightening(rows, *static_cast<CVolume*>(tiltedUneven.get()), "tilted stack made straight, z resampled");
    for (int round = 0; round < std::max(sizes.rounds, 1); ++round) {
        for (Row& row : rows) {
            const double begin = ProcessorSeconds();
            Holder result = row.job(1);
            row.seconds.push_back(ProcessorSeconds() - begin);
            result.reset();
            const auto then = std::chrono::steady_clock::now();
            result = row.job(2);
            row.secondsOfTwo.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - then).count());
        }
    }
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const Row& row = rows[i];
        std::vector<double> floor, floorOfTwo;  // of as many bytes as the result has
        const double share = static_cast<double>(row.bytes) / static_cast<double>(bytes);
        for (std::size_t round = 0; i >= kCopies && round < row.seconds.size(); ++round) {
            floor.push_back(rows[1].seconds[round] * share);
            floorOfTwo.push_back(rows[1].secondsOfTwo[round] * share);
        }
        TellRow({.bench = "bench_reformat",
                 .job = (i < kCopies ? "" : "reformat, ") + row.name,
                 .floor = i < kCopies ? "" : "memcpy into fresh huge pages",
                 .ours = row.seconds,
                 .floorSeconds = floor,
                 .twoThreads = row.secondsOfTwo,
                 .floorOfTwo = floorOfTwo,
                 .bytes = static_cast<double>(row.moved)});
    }
    int missed = 0;
    Print(rows, missed);
    return missed > 0 ? 1 : 0;
}
