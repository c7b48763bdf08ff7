#include "VolumeGroups.h"

#include "../study/SeriesVolume.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

namespace korvane {

namespace {

// Entries of `FrameKeys`.
constexpr std::size_t kKind = 0;
constexpr std::size_t kEchoNumber = 8;
constexpr std::size_t kEchoTime = 9;

/// Short words of the kinds of image, in the order of their numbers; magnitude, the usual one, needs none.
constexpr const char* kKinds[] = {"",   "",       "ph",       "real", "imaginary", "adc", "fa", "trace", "t1",
                                  "t2", "t2star", "velocity", "b0",   "water",     "fat", "ip", "op"};

double OrNone(double value) {
    return std::isnan(value) ? -1 : value;
}

/// What volumes of one file have in common.
struct Meaning {
    double kind = -1;
    double echo = -1;      // number
    double echoTime = -1;  // milliseconds
    std::size_t slices = 0;

    auto operator<=>(const Meaning&) const = default;
};

Meaning MeaningOf(const SeriesVolume& series, const std::vector<SliceRef>& slices) {
    const auto& values = series.GetFound().KeysOf(slices.front()).values;
    return {OrNone(values[kKind]), OrNone(values[kEchoNumber]), OrNone(values[kEchoTime]), slices.size()};
}

/// The names of groups, each said only where it tells them apart.
class Suffixes {
public:
    explicit Suffixes(const std::vector<Meaning>& groups) {
        std::set<double> echoNumbers;
        for (const Meaning& group : groups) {
            m_Kinds.insert(group.kind);
            echoNumbers.insert(group.echo);
            m_Times.insert(group.echoTime);
        }
        m_bNumbered = echoNumbers.size() > 1;
    }

    std::string Make(const Meaning& group) {
        std::string suffix;
        if (m_bNumbered || m_Times.size() > 1) {
            const auto rank = std::distance(m_Times.begin(), m_Times.find(group.echoTime)) + 1;
            const long number = m_bNumbered ? std::lround(group.echo) : static_cast<long>(rank);
            suffix += "_e" + std::to_string(number);
        }
        const auto kind = static_cast<std::size_t>(std::max(group.kind, 0.0));
        if (m_Kinds.size() > 1 && kind < std::size(kKinds) && kKinds[kind][0] != '\0') {
            suffix += std::string("_") + kKinds[kind];
        }
        if (!m_Made.insert(suffix).second) {
            suffix += "_v" + std::to_string(m_Made.size() + 1);
            m_Made.insert(suffix);
        }
        return suffix;
    }

private:
    std::set<double> m_Kinds;
    std::set<double> m_Times;
    std::set<std::string> m_Made;
    bool m_bNumbered = false;
};

/// Times as they were taken, unless a number of the scanner's orders them: keys such as b-values only tell them apart.
void SortByTime(const VolumeSets& sets, std::vector<std::size_t>& members) {
    if (sets.order.starts_with("temporal position")) return;
    std::stable_sort(members.begin(), members.end(), [&sets](std::size_t a, std::size_t b) {
        return sets.members[a].front() < sets.members[b].front();
    });
}

ExportPart MakePart(const SeriesVolume& series, const std::vector<std::size_t>& members) {
    const VolumeSets& sets = series.GetSets();
    ExportPart part{"", "", sets.volumes[members.front()]};
    for (std::size_t i = 1; i < members.size(); ++i) part.later.push_back(sets.volumes[members[i]]);
    if (sets.volumes.size() < 2) return part;
    if (members.size() == 1) {
        part.what = "volume " + std::to_string(members.front() + 1) + " of " + std::to_string(sets.volumes.size()) +
                    ": " + sets.keys[members.front()];
    } else {
        part.what = std::to_string(members.size()) + " volumes, told apart by " + sets.order;
    }
    return part;
}

}  // namespace

std::vector<ExportPart> GroupVolumes(const SeriesVolume& series, bool times) {
    const VolumeSets& sets = series.GetSets();
    std::vector<std::vector<std::size_t>> groups;
    std::vector<Meaning> meanings;
    std::map<Meaning, std::size_t> known;
    for (std::size_t i = 0; i < sets.volumes.size(); ++i) {
        const Meaning meaning = MeaningOf(series, sets.volumes[i]);
        const auto [entry, isNew] = known.try_emplace(meaning, groups.size());
        if (isNew || !times) {
            entry->second = groups.size();
            groups.emplace_back();
            meanings.push_back(meaning);
        }
        groups[entry->second].push_back(i);
    }
    Suffixes suffixes(meanings);
    std::vector<ExportPart> parts;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        SortByTime(sets, groups[i]);
        parts.push_back(MakePart(series, groups[i]));
        if (groups.size() > 1) parts.back().suffix = suffixes.Make(meanings[i]);
    }
    return parts;
}

}  // namespace korvane
