#include "Report.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace {

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The median over the rounds of one entry's time / another's; 0 where one of them was not measured.
double Ratio(const Entry& one, const Entry& other) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(one.seconds.size(), other.seconds.size()); ++i) {
        ratios.push_back(one.seconds[i] / other.seconds[i]);
    }
    return Median(std::move(ratios));
}

struct Figures {
    const Entry* limit = nullptr;
    const Entry* ours = nullptr;
    std::vector<std::pair<std::string, double>> beside;  // time / ours
    double ofLimit = 0;
    double perSecond = 0;

    explicit Figures(const Row& row) : limit(&row.entries[0]), ours(&row.entries[1]), ofLimit(Ratio(*ours, *limit)) {
        if (!ours->seconds.empty()) perSecond = static_cast<double>(row.units) / Median(ours->seconds);
        for (auto entry = row.entries.begin() + 2; entry != row.entries.end(); ++entry) {
            beside.emplace_back(entry->name, Ratio(*entry, *ours));
        }
    }

    double Beside(const std::string& name) const {
        const auto found =
            std::find_if(beside.begin(), beside.end(), [&](const auto& each) { return each.first == name; });
        return found != beside.end() ? found->second : 0;
    }
};

std::string Fixed(double value, int digits) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(digits) << value;
    return text.str();
}

// One condition of a row's aim: its text, and whether it is met. Conditions on peers that are not installed are left
// out.
struct Condition {
    std::string text;
    bool met;
};

std::vector<Condition> Judge(const Row& row, const Figures& figures) {
    std::vector<Condition> conditions;
    const Aim& aim = row.aim;
    const auto atLeast = [&](const std::string& peer, double least) {
        const double ratio = figures.Beside(peer);
        if (least > 0 && ratio > 0) conditions.push_back({peer + " >= " + Fixed(least, 1), ratio >= least});
    };
    if (aim.mostOfLimit > 0) {
        conditions.push_back(
            {"ratio <= " + Fixed(aim.mostOfLimit, 1), figures.ofLimit > 0 && figures.ofLimit <= aim.mostOfLimit});
    }
    atLeast("DCMTK", aim.leastOfDcmtk);
    atLeast("GDCM", aim.leastOfGdcm);
    if (aim.leastPerSecond > 0) {
        conditions.push_back({Fixed(aim.leastPerSecond / 1e6, 1) + " M/s", figures.perSecond >= aim.leastPerSecond});
    }
    return conditions;
}

std::string Cell(double ratio) {
    return ratio > 0 ? Fixed(ratio, 2) : "-";
}

std::string Quoted(const std::string& text) {
    return '"' + text + '"';  // names of rows and entries need no escapes
}

void PrintEntryJson(std::ostream& out, const Entry& entry, const Figures& figures) {
    out << "        {\"name\": " << Quoted(entry.name) << ", \"cpu_ms\": " << Median(entry.seconds) * 1e3
        << ", \"wall_ms\": " << Median(entry.wallSeconds) * 1e3 << ", \"of_limit\": " << Ratio(entry, *figures.limit)
        << ", \"of_ours\": " << Ratio(entry, *figures.ours) << "}";
}

}  // namespace

void PrintTable(std::ostream& out, const std::vector<Row>& rows) {
    out << std::left << std::setw(23) << "" << std::right << std::setw(9) << "ours ms" << std::setw(10) << "limit ms"
        << std::setw(8) << "ratio" << std::setw(8) << "DCMTK" << std::setw(8) << "GDCM" << std::setw(9) << "M/s"
        << "  limit; aim\n";
    for (const Row& row : rows) {
        const Figures figures(row);
        out << std::left << std::setw(23) << row.name << std::right << std::setw(9)
            << Fixed(Median(figures.ours->seconds) * 1e3, 2) << std::setw(10)
            << Fixed(Median(figures.limit->seconds) * 1e3, 2) << std::setw(8) << Cell(figures.ofLimit) << std::setw(8)
            << Cell(figures.Beside("DCMTK")) << std::setw(8) << Cell(figures.Beside("GDCM")) << std::setw(9)
            << (row.units >= 10'000 ? Fixed(figures.perSecond / 1e6, 2) : "-") << "  " << row.limit;
        for (const auto& [name, ratio] : figures.beside) {
            if (name != "DCMTK" && name != "GDCM") out << "; " << name << ' ' << Cell(ratio);
        }
        for (const Condition& condition : Judge(row, figures)) {
            out << "; " << condition.text << (condition.met ? " met" : " MISSED");
        }
        out << '\n';
        for (const Entry& entry : row.entries) {
            if (!entry.failure.empty()) out << "  " << entry.name << " failed: " << entry.failure << '\n';
        }
    }
    out << "\nMedians of CPU time, one thread, warm cache. ratio: ours / limit. DCMTK, GDCM and what is named beside "
           "the\n"
           "limit: its time / ours, so above 1 ours is faster.\n";
}

void PrintJson(std::ostream& out, const std::vector<Row>& rows) {
    out << "{\n  \"schema\": 1,\n  \"rows\": [\n";
    for (const Row& row : rows) {
        const Figures figures(row);
        bool met = true;
        std::string aim;
        for (const Condition& condition : Judge(row, figures)) {
            met = met && condition.met;
            aim += (aim.empty() ? "" : ", ") + condition.text;
        }
        out << "    {\"name\": " << Quoted(row.name) << ", \"limit\": " << Quoted(row.limit)
            << ", \"units\": " << row.units << ", \"rounds\": " << figures.ours->seconds.size()
            << ",\n      \"ratio\": " << figures.ofLimit << ", \"units_per_second\": " << figures.perSecond
            << ", \"aim\": " << Quoted(aim) << ", \"met\": " << (met ? "true" : "false") << ",\n      \"entries\": [\n";
        for (const Entry& entry : row.entries) {
            PrintEntryJson(out, entry, figures);
            out << (&entry != &row.entries.back() ? ",\n" : "\n");
        }
        out << "      ]}" << (&row != &rows.back() ? ",\n" : "\n");
    }
    out << "  ]\n}\n";
}
