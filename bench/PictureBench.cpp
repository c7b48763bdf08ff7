// usage: bench_picture [--rounds=N]
//
// What the Kit's pictures cost beside the work that no program can do without, in one round after the other so that what
// disturbs the machine disturbs both; ratios are medians over the rounds. A stored image is drawn from its file: the limit
// reads the same bytes and maps each word by a plain loop. Views of a volume in memory: the limit is the sampler alone, with
// the same plane, size and window. Fails when an aim is missed.
#include "RowFile.h"

#include <Korvane/kit/phantom/Phantom.h>
#include <Korvane/kit/pictures/Draw.h>
#include <Korvane/kit/study/Find.h>
#include <Korvane/kit/study/Load.h>

#include <Korvane/Korvane.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Job = std::function<void()>;

constexpr int kSize = 512;
constexpr double kMillisecond = 1e3;

double Seconds(const Job& job) {
    const double begin = ProcessorSeconds();
    job();
    return ProcessorSeconds() - begin;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// False where the aim is missed.
bool Measure(const char* name, int rounds, double most, const Job& limit, const Job& ours) {
    std::vector<double> limits, times, ratios;
    limit();
    ours();
    for (int round = 0; round < rounds; ++round) {
        limits.push_back(Seconds(limit));
        times.push_back(Seconds(ours));
        ratios.push_back(times.back() / limits.back());
    }
    TellRow({"bench_picture", std::string("picture, ") + name, "a plain loop, or the sampler alone", times, limits});
    const double ratio = Median(ratios);
    std::printf("%-28s %9.3f ms  limit %9.3f ms  ratio %5.2f (at most %.1f)%s\n", name, Median(times) * kMillisecond,
                Median(limits) * kMillisecond, ratio, most, ratio > most ? "  MISSED" : "");
    return ratio <= most;
}

/// The file's last bytes are the pixels.
void MapPlainly(const std::string& path, std::vector<unsigned char>& grey) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes(static_cast<std::size_t>(fs::file_size(path)));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const std::size_t first = bytes.size() - grey.size() * 2;
    for (std::size_t i = 0; i < grey.size(); ++i) {
        std::uint16_t stored;
        std::memcpy(&stored, bytes.data() + first + 2 * i, sizeof stored);
        const double value = (stored - 1024 + 160) * (255.0 / 400) + 0.5;
        grey[i] = static_cast<unsigned char>(std::clamp(value, 0.0, 255.0));
    }
}

struct ViewRow {
    const char* name;
    korvane::View view;
    double slab;
    double most;
};

bool MeasureView(const korvane::Volume& volume, const ViewRow& row, int rounds) {
    korvane::SliceOptions options;
    options.view = row.view;
    options.slab = row.slab;
    options.slabMode = korvane::SlabMode::Maximum;
    options.window = korvane::Window{40, 400};
    const korvane::SlicePicture drawn = korvane::Slice(volume, options);
    CVolume* const voxels = volume.Module()->GetVolume();
    DcmObliqueSlice slice(voxels);
    const VolumePlane plane = row.view == korvane::View::Axial     ? VP_XY
                              : row.view == korvane::View::Coronal ? VP_XZ
                                                                   : VP_YZ;
    slice.SetOrthogonal(plane, kSize / 4.0 - 1);
    slice.SetSize(drawn.report.width, drawn.report.height);
    slice.SetPixelSize(drawn.report.pixelSize, drawn.report.pixelSize);
    if (row.slab > 0) slice.SetSlab(DcmObliqueSlice::SM_MAXIMUM, row.slab);
    std::vector<unsigned char> grey(slice.GetPixelCount());
    return Measure(
        row.name, rounds, row.most, [&] { slice.GetPicture(grey.data(), grey.size(), 40 + 1024, 400); },
        [&] { korvane::Slice(volume, options); });
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = RoundsFrom(argc, argv, 15);
    const fs::path folder = fs::temp_directory_path() / "korvane_bench_picture";
    const auto paths = korvane::WritePhantom(folder.string(), {.slices = kSize / 2, .columns = kSize, .rows = kSize});
    std::vector<unsigned char> grey(static_cast<std::size_t>(kSize) * kSize);
    korvane::SliceOptions window;
    window.window = korvane::Window{40, 400};
    bool met = Measure(
        "stored image from its file", rounds, 2, [&] { MapPlainly(paths.front(), grey); },
        [&] { korvane::Draw(paths.front(), 0, window); });
    {
        const korvane::Volume volume = korvane::Load(korvane::Find(paths).Only());
        const ViewRow rows[] = {{"axial view", korvane::View::Axial, 0, 1.5},
                                {"coronal view", korvane::View::Coronal, 0, 1.5},
                                {"sagittal view", korvane::View::Sagittal, 0, 1.5},
                                {"coronal slab of 20 mm", korvane::View::Coronal, 20, 1.3}};
        for (const ViewRow& row : rows) met = MeasureView(volume, row, rounds) && met;
    }
    fs::remove_all(folder);
    return met ? 0 : 1;
}
