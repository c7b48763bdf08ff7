#include "Histogram.h"

namespace korvane {

double Histogram::Percentile(double part) const {
    const double wanted = part * static_cast<double>(m_Total);
    std::uint64_t passed = 0;
    std::size_t bin = 0;
    while (bin + 1 < kBins && static_cast<double>(passed += m_Counts[bin]) < wanted) ++bin;
    return static_cast<double>(m_Lowest + (static_cast<long long>(bin) << m_Shift));
}

}  // namespace korvane
