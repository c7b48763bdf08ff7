// What a benchmark measured, for bench/table.py, which gathers the rows of all of them.
#pragma once

#include <string>
#include <utility>
#include <vector>

/// One job: the seconds of each round.
struct RowOfTable {
    std::string bench;  ///< the program's name
    std::string job;
    std::string floor;  ///< what the floor does: the least that any library would have to do
    std::vector<double> ours;
    std::vector<double> floorSeconds;
    std::vector<std::pair<std::string, std::vector<double>>> peers = {};
    std::vector<double> twoThreads = {};  ///< ours; none: the job runs on one
    std::vector<double> floorOfTwo = {};  ///< the floor's on two threads
    double bytes = 0;                     ///< read and written, where GB/s are to be told
};

/// Appends the row as a line of JSON to the file that the environment names in KORVANE_BENCH_ROWS; does nothing where it
/// names none. Texts need no escapes.
void TellRow(const RowOfTable& row);

/// Of a benchmark that takes --rounds=N alone: N, or `otherwise`. Any other argument ends the program with how to call it.
int RoundsFrom(int argc, char** argv, int otherwise);

/// Processor seconds of this process so far, which other load on the machine disturbs less than elapsed ones.
double ProcessorSeconds();
