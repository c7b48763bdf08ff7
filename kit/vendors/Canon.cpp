#include "Canon.h"

#include "base/Number.h"

#include <algorithm>

namespace korvane::canon {

/// The comment reads "b=1500(0.445,0.000,0.895)": phase, frequency, slice. It is believed from these makers alone.
DiffusionFacts ReadDiffusion(const DICOMObject& holder) {
    DiffusionFacts facts;
    const std::string maker = FindText(holder, tags::Manufacturer);
    if (!maker.starts_with("CANON") && !maker.starts_with("Canon") && !maker.starts_with("TOSHIBA")) return facts;
    std::string text = FindText(holder, tags::ImageComments);
    const std::size_t open = text.find('(');
    if (!text.starts_with("b=") || open == std::string::npos || text.back() != ')') return facts;
    double value = 0;
    if (platform::ScanReals(text.substr(2, open - 2), &value, 1) != 1 || !(value >= 0)) return facts;
    facts.bValue = value;
    std::string list = text.substr(open + 1, text.size() - open - 2);
    std::replace(list.begin(), list.end(), ',', '\\');
    Vector3 direction;
    if (platform::ScanReals(list, direction.data(), 3) == 3 && value > 0)
        facts.direction = {direction[1], direction[0], direction[2]};
    facts.axes = DiffusionFacts::Axes::Gradients;
    return facts;
}

}  // namespace korvane::canon
