// usage: bench_speed [--rounds=N] [--json=FILE] [--alone] [NAME...]    all rows, or those whose names contain one of the texts
// --alone: without peers
//
// Each round runs the entries of a row one after the other (limit, this library, peers), so that what disturbs the
// machine disturbs all of them alike. The JSON file is bench_speed.json beside the program, unless named.
#include "Report.h"
#include "RowFile.h"

#include <Korvane/platform/memory/Memory.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <fstream>
#include <iostream>
#include <string_view>

namespace {

struct Options {
    int rounds = 9;
    std::string json;
    bool alone = false;
    std::vector<std::string_view> names;

    Options(int argc, char** argv) : json(std::string(argv[0]) + ".json") {
        for (int i = 1; i < argc; ++i) {
            const std::string_view argument = argv[i];
            if (argument.starts_with("--rounds=")) {
                std::from_chars(argument.data() + 9, argument.data() + argument.size(), rounds);
            } else if (argument.starts_with("--json=")) {
                json = argument.substr(7);
            } else if (argument == "--alone") {
                alone = true;
            } else {
                names.push_back(argument);
            }
        }
    }

    bool Wants(const Row& row) const {
        return names.empty() || std::any_of(names.begin(), names.end(), [&](std::string_view name) {
                   return row.name.find(name) != std::string::npos;
               });
    }
};

// Collects the times of the entry that was run.
class Collector : public benchmark::BenchmarkReporter {
public:
    explicit Collector(Entry& entry) : m_Entry(entry) {}
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        if (!m_Entry.failure.empty()) return;
        for (const Run& run : runs) {
            m_Entry.seconds.push_back(run.cpu_accumulated_time);
            m_Entry.wallSeconds.push_back(run.real_accumulated_time);
        }
    }

private:
    Entry& m_Entry;
};

void RunEntry(benchmark::State& state, Entry& entry) {
    for ([[maybe_unused]] auto each : state) {
        try {
            auto leftover = entry.job();
            state.PauseTiming();
            leftover.reset();
            state.ResumeTiming();
        } catch (const std::exception& failure) {
            entry.failure = failure.what();
            state.SkipWithError(failure.what());
            break;
        }
    }
}

// Virtual machines may hand free memory back to their host; the first access to it then takes ten times as long. So as
// much memory as any entry needs is touched beforehand, and all entries find the same conditions.
void WarmMemory() {
    constexpr std::size_t kBytes = 2 * Series::kVolumeBytes + (std::size_t{64} << 20);
    auto* const bytes = static_cast<volatile unsigned char*>(platform::AllocateBuffer(kBytes));
    for (std::size_t i = 0; i < kBytes; i += 4096) bytes[i] = 1;
    platform::FreeBuffer(const_cast<unsigned char*>(bytes));
}

void RunRow(Row& row, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        for (Entry& entry : row.entries) {
            WarmMemory();
            benchmark::ClearRegisteredBenchmarks();
            benchmark::RegisterBenchmark(entry.name.c_str(), [&entry](benchmark::State& state) {
                RunEntry(state, entry);
            })->Iterations(1);
            Collector collector(entry);
            benchmark::RunSpecifiedBenchmarks(&collector, ".");
        }
    }
}

RowOfTable ForTable(const Row& row) {
    RowOfTable told{"bench_speed", row.name, row.limit, row.entries[1].seconds, row.entries[0].seconds};
    for (auto peer = row.entries.begin() + 2; peer != row.entries.end(); ++peer) {
        if (!peer->seconds.empty()) told.peers.emplace_back(peer->name, peer->seconds);
    }
    return told;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        const Options options(argc, argv);
        const Series series;
        Readers readers;
        readers.push_back(MakeToolkitReader());
#ifdef BENCH_DCMTK
        if (!options.alone) readers.push_back(MakeDcmtkReader());
#endif
#ifdef BENCH_GDCM
        if (!options.alone) readers.push_back(MakeGdcmReader());
#endif
        std::vector<Row> rows = MakeRows(series, readers);
        std::erase_if(rows, [&](const Row& row) { return !options.Wants(row); });
        for (Row& row : rows) {
            std::cerr << row.name << '\n';
            RunRow(row, options.rounds);
        }
        PrintTable(std::cout, rows);
        for (const Row& row : rows) TellRow(ForTable(row));
        std::ofstream file(options.json);
        PrintJson(file, rows);
        if (!file.flush()) throw std::runtime_error("cannot write " + options.json);
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "bench_speed: " << failure.what() << '\n';
        return 1;
    }
}
