#include "RowFile.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

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
    out << "}, \"two_threads\": " << Listed(row.twoThreads) << "}\n";
}

double ProcessorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}
