// What is measured: rows of the table, each with the limit, this library and the peers as entries.
#pragma once

#include "Reader.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// One way to do a row's work, and the seconds that it took in each round.
struct Entry {
    /// What the job returns is freed when the clock has stopped.
    using Job = std::function<std::shared_ptr<void>()>;

    std::string name;
    Job job;
    std::vector<double> seconds = {};      ///< CPU time of the thread, user and system
    std::vector<double> wallSeconds = {};  ///< the same rounds by the clock on the wall
    std::string failure = {};
};

/// What the row should reach; 0 where nothing is asked for.
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
    std::vector<Entry> entries;  ///< the limit, this library, then whatever stands beside them
};

using Readers = std::vector<std::unique_ptr<Reader>>;  ///< this library's first

/// All rows. Each reader has then read everything once, with a result that was compared with the truth; a reader that
/// failed at a row's work is not in that row. The series must outlive the rows, and so must the readers.
std::vector<Row> MakeRows(const Series& series, const Readers& readers);
