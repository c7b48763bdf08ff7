// Finds and loads a series, so often as it is told, and prints the seconds of each time: what Python's module is measured
// beside, and the job "load" of table.py.
#include <Korvane/Kit.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) {
        std::fputs("usage: find_and_load FOLDER TIMES [THREADS]\n", stderr);
        return 2;
    }
    try {
        const auto jobs = static_cast<unsigned>(argc > 3 ? std::atoi(argv[3]) : 0);
        for (int time = 0; time < std::atoi(argv[2]); ++time) {
            const auto begin = std::chrono::steady_clock::now();
            const korvane::Volume volume =
                korvane::Load(korvane::Find({argv[1]}, {.jobs = jobs}).Only(), {.jobs = jobs});
            const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
            std::printf("%.6f %zu\n", seconds.count(), volume.GetBytes().size());
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
