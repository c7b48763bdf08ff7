// usage: bench_math [--rounds=N]
//
// Vectors, matrices and numerical routines beside Eigen's dynamic types. Each round runs both one after the other, so
// that what disturbs the machine disturbs both; ratios are medians over the rounds. Fails when
// an aim is missed.
#include "RowFile.h"

#include <Korvane/Korvane.h>

#include <benchmark/benchmark.h>

#include <Eigen/Dense>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Job = std::function<void(benchmark::State&)>;

struct Row {
    std::string name;
    double most;  ///< the most that time / Eigen's may be; 0 for no aim
    Job ours;
    Job eigen;
    std::vector<double> seconds = {};
    std::vector<double> peer = {};
    std::vector<double> ratios = {};
};

class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) m_Seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
    }
    double m_Seconds = 0;
};

double Measure(const Job& job) {
    benchmark::ClearRegisteredBenchmarks();
    benchmark::RegisterBenchmark("job", job)->MinTime(0.02);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector, ".");
    return collector.m_Seconds;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Repeats an operation. Its results are used, so that the compiler cannot drop it.
template <typename Operation>
Job Repeat(Operation operation) {
    return [operation](benchmark::State& state) {
        for ([[maybe_unused]] auto each : state) {
            auto result = operation();
            benchmark::DoNotOptimize(result);
        }
    };
}

struct Pair {
    FMatrix ours;
    Eigen::MatrixXf eigen;

    explicit Pair(int n) : ours(n, n), eigen(Eigen::MatrixXf::Random(n, n)) {
        eigen += 2 * Eigen::MatrixXf::Identity(n, n);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) ours[i][j] = eigen(i, j);
        }
    }
};

double DecomposeOurs(const FMatrix& a) {
    double* w = nullptr;
    double** v = nullptr;
    double** const u = d_SVD(a, w, v, true);
    const double largest = w[0];
    d_FreeSVD(u, a.nrows(), w, v, a.ncols());
    return largest;
}

double DecomposeEigen(const Eigen::MatrixXd& a) {
    return Eigen::BDCSVD<Eigen::MatrixXd>(a, Eigen::ComputeThinU | Eigen::ComputeThinV).singularValues()(0);
}

void AddMatrices(std::vector<Row>& rows, int n, double mostInverse, double mostProduct, double mostSvd) {
    const Pair a(n), b(n);
    const std::string count = std::to_string(n);
    const std::string size = std::string(" ").append(count).append(" x ").append(count);
    rows.push_back({"inverse" + size, mostInverse, Repeat([a] { return inv(a.ours); }),
                    Repeat([a] { return Eigen::MatrixXf(a.eigen.partialPivLu().inverse()); })});
    rows.push_back({"product" + size, mostProduct, Repeat([a, b] { return a.ours * b.ours; }),
                    Repeat([a, b] { return Eigen::MatrixXf(a.eigen * b.eigen); })});
    const Eigen::MatrixXd inDouble = a.eigen.cast<double>();
    rows.push_back({"SVD" + size, mostSvd, Repeat([a] { return DecomposeOurs(a.ours); }),
                    Repeat([inDouble] { return DecomposeEigen(inDouble); })});
}

void AddVectors(std::vector<Row>& rows) {
    const Pair m(3);
    const FVector a = m.ours.row(0), b = m.ours.row(1);
    const Eigen::VectorXf x = m.eigen.row(0), y = m.eigen.row(1);
    rows.push_back({"cross product", 3, Repeat([a, b] { return a ^ b; }),
                    Repeat([x, y] { return Eigen::VectorXf(x.head<3>().cross(y.head<3>())); })});
    rows.push_back({"dot product of 3", 3, Repeat([a, b] { return a * b; }), Repeat([x, y] { return x.dot(y); })});
    rows.push_back(
        {"sum of 3", 3, Repeat([a, b] { return a + b; }), Repeat([x, y] { return Eigen::VectorXf(x + y); })});
    rows.push_back({"matrix times vector of 3", 3, Repeat([m, a] { return m.ours * a; }),
                    Repeat([m, x] { return Eigen::VectorXf(m.eigen * x); })});
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 9;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with("--rounds=")) {
            std::from_chars(argument.data() + 9, argument.data() + argument.size(), rounds);
        }
    }
    int one = 1;
    benchmark::Initialize(&one, argv);
    std::vector<Row> rows;
    AddVectors(rows);
    AddMatrices(rows, 3, 1, 3, 0);
    AddMatrices(rows, 4, 1, 3, 0);
    AddMatrices(rows, 50, 0, 3, 1.5);
    int missed = 0;
    std::printf("%-26s %12s %12s   %s\n", "", "ns", "/ Eigen", "aim");
    for (Row& row : rows) {
        for (int round = 0; round < std::max(rounds, 1); ++round) {
            row.seconds.push_back(Measure(row.ours));
            row.peer.push_back(Measure(row.eigen));
            row.ratios.push_back(row.seconds.back() / row.peer.back());
        }
        TellRow({"bench_math", row.name, "", row.seconds, {}, {{"Eigen", row.peer}}});
        const double ratio = Median(row.ratios);
        std::printf("%-26s %12.1f %12.2f", row.name.c_str(), Median(row.seconds) * 1e9, ratio);
        if (row.most > 0) {
            const bool met = ratio <= row.most;
            std::printf("   <= %.1f %s", row.most, met ? "met" : "MISSED");
            missed += met ? 0 : 1;
        }
        std::printf("\n");
    }
    return missed > 0 ? 1 : 0;
}
