// Finds and loads a series, so often as it is told, and prints the seconds of each time: what Python's module is measured
// beside.
#include <Korvane/Kit.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: find_and_load FOLDER TIMES\n", stderr);
        return 2;
    }
    try {
        for (int time = 0; time < std::atoi(argv[2]); ++time) {
            const auto begin = std::chrono::steady_clock::now();
            const korvane::Volume volume = korvane::Load(korvane::Find({argv[1]}).Only());
            const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
            std::printf("%.6f %zu\n", seconds.count(), volume.GetBytes().size());
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
