// Short texts of vectors and results, for comparisons.
#pragma once

#include <Korvane/Korvane.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr int kHuge = std::numeric_limits<int>::max();

inline FVector V(const std::vector<float>& elements) {
    return FVector(elements.data(), static_cast<int>(elements.size()));
}

/// The values as `<<` writes them, each followed by ";".
template <typename... Values>
std::string Show(const Values&... values) {
    std::ostringstream out;
    ((out << values << ';'), ...);
    return out.str();
}
