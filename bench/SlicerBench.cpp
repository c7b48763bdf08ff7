// usage: bench_slicer [--rounds=N]
//
// korvane::Slicer on a volume of 512 x 512 x 600 voxels in memory, 16 bits, 512 x 512 pictures, linear. Each round runs one
// thread and two: elapsed times, since it is two threads that are looked at, and what the processor spent. Slabs: a plane that moves by a layer's distance,
// beside one that moves by half of it, which is made afresh. Fails when an aim is missed.
#include "RowFile.h"

#include <Korvane/kit/derived/Derive.h>
#include <Korvane/kit/pictures/Slicer.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace {

using Job = std::function<void()>;
using korvane::SliceOptions;
using korvane::Slicer;

constexpr std::size_t kSize = 512;

double Seconds(const Job& job) {
    const auto begin = std::chrono::steady_clock::now();
    job();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

korvane::Volume MakeNoise(std::size_t planes) {
    std::vector<std::int16_t> voxels(kSize * kSize * planes);
    std::minstd_rand random;
    for (std::int16_t& voxel : voxels) voxel = static_cast<std::int16_t>(random() % 4001) - 2000;
    korvane::VoxelArray array{.size = {kSize, kSize, planes, 1}, .voxels = std::as_bytes(std::span(voxels))};
    array.PlaceBy({0, 0, 0}, {{{0.7, 0, 0}, {0, 0.7, 0}, {0, 0, 1}}});
    return korvane::MakeVolume(array);
}

SliceOptions PlaneBy(const std::array<double, 3>& normal, unsigned jobs) {
    SliceOptions options;
    options.view.reset();
    options.plane.normal = normal;
    options.frame = {{static_cast<int>(kSize), static_cast<int>(kSize)}};
    options.window = korvane::Window{40, 400};
    options.jobs = jobs;
    return options;
}

struct Aims {
    double perSecond = 0;  ///< on two threads, at least
    double gain = 0;       ///< one thread's time / that of two, at least
};

/// False where an aim is missed.
bool Measure(const std::string& name, int rounds, const Aims& aims, const Job& one, const Job& two) {
    std::vector<double> alone, together, gains, processor[2];
    one();
    two();
    for (int round = 0; round < rounds; ++round) {
        const double begin = ProcessorSeconds();
        alone.push_back(Seconds(one));
        const double middle = ProcessorSeconds();
        together.push_back(Seconds(two));
        processor[0].push_back(middle - begin);
        processor[1].push_back(ProcessorSeconds() - middle);
        gains.push_back(alone.back() / together.back());
    }
    TellRow({"bench_slicer", "slicer, " + name, "", alone, {}, {}, together});
    const double rate = 1 / Median(together);
    const bool met = rate >= aims.perSecond && Median(gains) >= aims.gain;
    std::printf("%-34s 1 thread %8.2f ms  2 threads %8.2f ms  gain %5.2f (aim %.1f)  %8.0f a second (aim %.0f)%s\n"
                "%-34s processor %7.2f ms             %7.2f ms\n",
                name.c_str(), Median(alone) * 1e3, Median(together) * 1e3, Median(gains), aims.gain, rate,
                aims.perSecond, met ? "" : "  MISSED", "", Median(processor[0]) * 1e3, Median(processor[1]) * 1e3);
    return met;
}

bool MeasurePlanes(Slicer& slicer, int rounds) {
    const struct {
        const char* name;
        std::array<double, 3> normal;
    } planes[] = {{"double oblique", {-0.6, 0.48, 0.64}}, {"near sagittal", {1, -0.02, -0.03}}};
    bool met = true;
    for (const auto& plane : planes) {
        const auto draw = [&slicer, &plane](unsigned jobs) {
            // Ten planes of a drag.
            SliceOptions options = PlaneBy(plane.normal, jobs);
            for (int n = 0; n < 10; ++n) {
                options.shift = n - 5;
                slicer.Draw(options);
            }
        };
        met = Measure(
                  std::string("ten planes, ") + plane.name, rounds, {50, 1.7}, [&] { draw(1); }, [&] { draw(2); }) &&
              met;
    }
    return met;
}

bool MeasureViews(Slicer& slicer, int rounds) {
    int at = 0;
    const auto draw = [&slicer, &at](unsigned jobs) {
        at = (at + 37) % 300;
        for (const korvane::View view : {korvane::View::Axial, korvane::View::Coronal, korvane::View::Sagittal}) {
            SliceOptions options = PlaneBy({}, jobs);
            options.view = view;
            options.index = 100 + at;
            slicer.Draw(options);
        }
    };
    return Measure(
        "three views of a mouse move", rounds, {200, 0}, [&] { draw(1); }, [&] { draw(2); });
}

bool MeasureSlab(Slicer& slicer, int rounds, korvane::SlabMode mode, const char* name) {
    SliceOptions options = PlaneBy({-0.6, 0.48, 0.64}, 1);
    options.slab = 14;
    options.slabMode = mode;
    std::vector<double> moved, fresh;
    slicer.Draw(options);
    const double step = slicer.GetFacts().slabStep;
    for (int round = 0; round < rounds; ++round) {
        options.shift += step;
        moved.push_back(Seconds([&] { slicer.Draw(options); }));
        options.shift += step / 2;  // between the layers: none is kept
        fresh.push_back(Seconds([&] { slicer.Draw(options); }));
        options.shift -= step / 2;
        slicer.Draw(options);
    }
    TellRow(
        {"bench_slicer", std::string("slicer, slab moved by a layer, ") + name, "the slab made afresh", moved, fresh});
    const double ratio = Median(fresh) / Median(moved);
    std::printf("%-34s moved %8.2f ms  afresh %8.2f ms  ratio %5.2f (aim 2)%s\n", name, Median(moved) * 1e3,
                Median(fresh) * 1e3, ratio, ratio >= 2 ? "" : "  MISSED");
    return ratio >= 2;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = RoundsFrom(argc, argv, 15);
    Slicer slicer(MakeNoise(600));
    bool met = MeasurePlanes(slicer, rounds);
    met = MeasureViews(slicer, rounds) && met;
    met = MeasureSlab(slicer, rounds, korvane::SlabMode::Mean, "mean of 14 mm") && met;
    met = MeasureSlab(slicer, rounds, korvane::SlabMode::Maximum, "maximum of 14 mm") && met;
    return met ? 0 : 1;
}
