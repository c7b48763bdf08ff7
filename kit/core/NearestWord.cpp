#include "NearestWord.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace korvane {

namespace {

/// The edit distance of two words: how many letters must be changed, added or removed to make one the other.
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({change, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

}  // namespace

std::string NearestWord(std::string_view mistyped, const std::vector<std::string>& words) {
    constexpr std::size_t kLongest = 200;  // the work grows with the square of the length
    if (mistyped.size() > kLongest) return {};
    std::size_t least = std::max<std::size_t>(2, mistyped.size() / 3) + 1;
    std::string nearest;
    for (const std::string& word : words) {
        const std::size_t lengths = std::max(word.size(), mistyped.size()) - std::min(word.size(), mistyped.size());
        if (lengths >= least) continue;
        const std::size_t distance = Distance(mistyped, word);
        if (distance >= least) continue;
        least = distance;
        nearest = word;
    }
    return nearest;
}

}  // namespace korvane
