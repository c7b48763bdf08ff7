// The rows of bench_speed's table. Each row is one piece of work, done by several entries: a limit (the least that any
// library would have to do), this library, and its peers.
#pragma once

#include "Reader.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// One way to do a row's work, and the seconds that it took in each round.
struct Entry {
    /// Does the work once. What it returns is freed after the clock has been stopped.
    using Job = std::function<std::shared_ptr<void>()>;

    std::string name;
    Job job;
    std::vector<double> seconds = {};      ///< CPU time of the thread, user and system
    std::vector<double> wallSeconds = {};  ///< the same rounds in elapsed time
    std::string failure = {};              ///< why the job failed; empty when it did not
};

/// What the row should reach; 0 means no aim.
struct Aim {
    double mostOfLimit = 0;     ///< time / limit, at most
    double leastOfDcmtk = 0;    ///< DCMTK's time / time, at least
    double leastOfGdcm = 0;     ///< GDCM's time / time, at least
    double leastPerSecond = 0;  ///< units per second, at least
};

struct Row {
    std::string name;
    std::string limit;  ///< what the first entry does
    std::size_t units;  ///< files, elements or slices of one run
    Aim aim;
    std::vector<Entry> entries;  ///< the limit, this library, then the peers
};

using Readers = std::vector<std::unique_ptr<Reader>>;  ///< this library's first

/// Makes all rows. To do so it lets each reader do each work once and checks the result; a reader that fails at a row's
/// work is left out of that row. Series and readers must outlive the rows.
std::vector<Row> MakeRows(const Series& series, const Readers& readers);
