// usage: bench_slicer [--rounds=N]
//
// korvane::Slicer on a volume of 512 x 512 x 600 voxels in memory, 16 bits, 512 x 512 pictures, linear. Each round runs one
// thread and two: elapsed times, since it is two threads that are looked at, and what the processor spent. Beside them the machine's
// limit: two threads, each with a slicer and a volume of its own, that share nothing but the memory's bandwidth; and two threads with
// slicers of one volume. Slabs: a plane that moves by a layer's distance,
// beside one that moves by half of it, which is made afresh. Fails when an aim is missed.
#include "RowFile.h"

#include <Korvane/kit/derived/Derive.h>
#include <Korvane/kit/pictures/Slicer.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <thread>
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

/// What a slicer is asked for in a row of the table, on so many threads.
struct Work {
    std::string name;
    double perSecond;  ///< on two threads, at least
    std::function<void(Slicer& slicer, unsigned jobs)> draw;
};

/// Seconds of two threads that each do the work once on a slicer of its own, begun together, by their number.
double SecondsOfBoth(const Work& work, Slicer& one, Slicer& other) {
    std::atomic<int> ready = 0;
    const auto run = [&](Slicer& slicer) {
        ++ready;
        while (ready < 2) std::this_thread::yield();
        const double seconds = Seconds([&] { work.draw(slicer, 1); });
        return seconds;
    };
    double seconds = 0;
    std::thread thread([&] { seconds = run(other); });
    const double own = run(one);
    thread.join();
    return std::max(own, seconds) / 2;
}

double Least(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

/// False where two threads gain neither what is aimed at nor what the machine gives, or are too slow.
bool Measure(const Work& work, int rounds, Slicer (&slicers)[3]) {
    constexpr double kGain = 1.7;
    constexpr double kOfLimit = 0.9;  // both are measured
    std::vector<double> alone, together, apart, beside, processor[2];
    for (Slicer& slicer : slicers) work.draw(slicer, 2);
    for (int round = 0; round < rounds; ++round) {
        const double begin = ProcessorSeconds();
        alone.push_back(Seconds([&] { work.draw(slicers[0], 1); }));
        const double middle = ProcessorSeconds();
        together.push_back(Seconds([&] { work.draw(slicers[0], 2); }));
        processor[0].push_back(middle - begin);
        processor[1].push_back(ProcessorSeconds() - middle);
        apart.push_back(SecondsOfBoth(work, slicers[0], slicers[2]));
        beside.push_back(SecondsOfBoth(work, slicers[0], slicers[1]));
    }
    TellRow({"bench_slicer", "slicer, " + work.name, "", alone, {}, {}, together});
    TellRow({"bench_slicer",
             "slicer, limit of the row above: two at once, volumes of their own",
             "",
             alone,
             {},
             {},
             apart});
    TellRow({"bench_slicer", "slicer, the same: two at once of one volume", "", alone, {}, {}, beside});
    const double gain = Least(alone) / Least(together), limit = Least(alone) / Least(apart);
    const bool met = 1 / Least(together) >= work.perSecond && gain >= std::min(kGain, kOfLimit * limit);
    std::printf("%-34s 1 thread %8.2f ms  2 threads %8.2f ms  gain %5.2f (aim %.1f; limit %.2f; one volume %.2f)  "
                "%8.0f a second (aim %.0f)%s\n%-34s processor %7.2f ms             %7.2f ms\n",
                work.name.c_str(), Least(alone) * 1e3, Least(together) * 1e3, gain, kGain, limit,
                Least(alone) / Least(beside), 1 / Least(together), work.perSecond, met ? "" : "  MISSED", "",
                Least(processor[0]) * 1e3, Least(processor[1]) * 1e3);
    return met;
}

/// Ten planes of a drag.
Work TenPlanes(const std::string& name, const std::array<double, 3>& normal) {
    return {"ten planes, " + name, 50, [normal](Slicer& slicer, unsigned jobs) {
                SliceOptions options = PlaneBy(normal, jobs);
                for (int n = 0; n < 10; ++n) {
                    options.shift = n - 5;
                    slicer.Draw(options);
                }
            }};
}

/// Of ten mouse moves.
Work TenViews(const std::string& name, const std::vector<korvane::View>& views) {
    return {name, 20, [views](Slicer& slicer, unsigned jobs) {
                for (int move = 0; move < 10; ++move) {
                    for (const korvane::View view : views) {
                        SliceOptions options = PlaneBy({}, jobs);
                        options.view = view;
                        options.index = 100 + 37 * move % 300;
                        slicer.Draw(options);
                    }
                }
            }};
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
    const auto volume = std::make_shared<const korvane::Volume>(MakeNoise(600));
    Slicer slicers[] = {Slicer(volume), Slicer(volume), Slicer(MakeNoise(600))};
    using korvane::View;
    bool met = true;
    for (const Work& work :
         {TenPlanes("double oblique", {-0.6, 0.48, 0.64}), TenPlanes("near sagittal", {1, -0.02, -0.03}),
          TenViews("three views, ten moves", {View::Axial, View::Coronal, View::Sagittal}),
          TenViews("axial and coronal, ten moves", {View::Axial, View::Coronal}),
          TenViews("sagittal, ten moves", {View::Sagittal})}) {
        met = Measure(work, rounds, slicers) && met;
    }
    met = MeasureSlab(slicers[0], rounds, korvane::SlabMode::Mean, "mean of 14 mm") && met;
    met = MeasureSlab(slicers[0], rounds, korvane::SlabMode::Maximum, "maximum of 14 mm") && met;
    return met ? 0 : 1;
}
