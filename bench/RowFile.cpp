#include "RowFile.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string_view>

namespace {

std::string Listed(const std::vector<double>& seconds) {
    std::ostringstream out;
    out << '[';
    for (std::size_t i = 0; i < seconds.size(); ++i) out << (i > 0 ? ", " : "") << seconds[i];
    out << ']';
    return out.str();
}

}  // namespace

void TellRow(const RowOfTable& row) {
    const char* const path = std::getenv("KORVANE_BENCH_ROWS");
    if (path == nullptr) return;
    std::ofstream out(path, std::ios::app);
    out << R"({"bench": ")" << row.bench << R"(", "job": ")" << row.job << R"(", "floor": ")" << row.floor
        << R"(", "ours": )" << Listed(row.ours) << R"(, "floor_seconds": )" << Listed(row.floorSeconds)
        << R"(, "peers": {)";
    for (const auto& [name, seconds] : row.peers) {
        out << (&name != &row.peers.front().first ? ", " : "") << '"' << name << "\": " << Listed(seconds);
    }
    out << "}, \"two_threads\": " << Listed(row.twoThreads) << ", \"floor_of_two\": " << Listed(row.floorOfTwo)
        << ", \"bytes\": " << row.bytes << "}\n";
}

int RoundsFrom(int argc, char** argv, int otherwise) {
    constexpr std::string_view kRounds = "--rounds=";
    int rounds = otherwise;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (!word.starts_with(kRounds)) {
            std::printf("usage: %s [--rounds=N]\n", argv[0]);
            std::exit(2);
        }
        std::from_chars(word.data() + kRounds.size(), word.data() + word.size(), rounds);
    }
    return rounds;
}

double ProcessorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}
