#include "VolumeSets.h"

#include "SeriesFindings.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <utility>

namespace korvane {

namespace {

/// Numbers by which images are told apart; what is not known comes first.
using Key = std::vector<double>;

constexpr double kUnknown = -1e30;
constexpr double kLeastFill = 0.5;  // of the positions, in the mean of the volumes

class Teller {
public:
    Teller(const FoundFiles& found, const FoundSeries& series)
        : m_Found(found), m_Series(series), m_Keys(series.slices.size()), m_Stacks(series.geometry.stacks) {
        if (!found.AreTimesAlone(series)) return;
        m_Stacks.emplace_back(series.slices.size());
        std::iota(m_Stacks.front().begin(), m_Stacks.front().end(), std::size_t{0});
    }

    VolumeSets Run() {
        if (m_Series.geometry.volumes > 1) {
            for (const KeyCandidate& candidate : KeyCandidates()) {
                if (IsTold(m_Keys)) break;
                Try(candidate);
            }
            TryOrders();
            if (!IsTold(m_Keys)) TryInstances();
            if (!IsTold(m_Keys)) Guess();
        }
        Collect();
        FindMixed();
        return std::move(m_Sets);
    }

private:
    const std::vector<std::vector<std::size_t>>& Stacks() const { return m_Stacks; }

    Key ValuesOf(std::size_t slice, const KeyCandidate& candidate) const {
        const auto& values = m_Found.KeysOf(m_Series.slices[slice]).values;
        Key key;
        for (std::size_t i = candidate.first; i < candidate.last; ++i) {
            key.push_back(std::isnan(values[i]) ? kUnknown : values[i]);
        }
        return key;
    }

    /// Whether `ValuesOf` would be `key`: most images have what the one before them has.
    bool HasValues(std::size_t slice, const KeyCandidate& candidate, const Key& key) const {
        const auto& values = m_Found.KeysOf(m_Series.slices[slice]).values;
        const auto known = [](double value, double other) { return (std::isnan(value) ? kUnknown : value) == other; };
        return key.size() == candidate.last - candidate.first &&
               std::equal(key.begin(), key.end(), values.begin() + static_cast<std::ptrdiff_t>(candidate.first),
                          [&](double own, double value) { return known(value, own); });
    }

    /// No two images share position and key.
    bool IsTold(const std::vector<Key>& keys) const {
        return std::all_of(Stacks().begin(), Stacks().end(), [&](const auto& stack) {
            std::set<Key> met;
            return std::all_of(stack.begin(), stack.end(),
                               [&](std::size_t slice) { return met.insert(keys[slice]).second; });
        });
    }

    bool Differs(const std::vector<Key>& keys) const {
        return std::any_of(Stacks().begin(), Stacks().end(), [&](const auto& stack) {
            std::map<Key, const Key*> met;  // by the key so far
            return std::any_of(stack.begin(), stack.end(), [&](std::size_t slice) {
                const auto [entry, isNew] = met.try_emplace(m_Keys[slice], &keys[slice]);
                return !isNew && *entry->second != keys[slice];
            });
        });
    }

    std::size_t CountKeys(const std::vector<Key>& keys) const {
        std::set<Key> all;
        for (const auto& stack : Stacks()) {
            for (const std::size_t slice : stack) all.insert(keys[slice]);
        }
        return all.size();
    }

    bool IsFilled(const std::vector<Key>& keys) const {
        std::size_t images = 0;
        for (const auto& stack : Stacks()) images += stack.size();
        const auto places = static_cast<double>(CountKeys(keys)) * static_cast<double>(Stacks().size());
        return static_cast<double>(images) > kLeastFill * places;
    }

    /// Few enough keys for several images each: echoes or b-values of which each lies somewhere else but for some positions.
    bool HasPairs(const std::vector<Key>& keys) const {
        std::size_t images = 0;
        for (const auto& stack : Stacks()) images += stack.size();
        return Stacks().size() > 1 && images >= 2 * CountKeys(keys);
    }

    void Accept(std::vector<Key> keys, const std::string& name) {
        m_Keys = std::move(keys);
        m_Sets.order += (m_Sets.order.empty() ? "" : " and ") + name;
    }

    void Try(const KeyCandidate& candidate) {
        std::vector<Key> keys = m_Keys;
        std::set<Key> values;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            const Key own = ValuesOf(i, candidate);
            values.insert(own);
            keys[i].insert(keys[i].end(), own.begin(), own.end());
        }
        if (!Differs(keys)) return;
        const bool makesVolumes = IsFilled(keys) || (candidate.isStrong && HasPairs(keys));
        if (makesVolumes && (!candidate.isTime || IsTold(keys))) {
            Accept(std::move(keys), candidate.name);
            m_Accepted.insert(candidate.name);
        } else {
            m_Sets.rejected.push_back(std::string(candidate.name) + " (" + std::to_string(values.size()) + " values)");
            m_Accepted.insert(candidate.name);  // told of already
        }
    }

    /// The images at one position that no key tells apart yet.
    std::vector<std::map<Key, std::vector<std::size_t>>> Groups() const {
        std::vector<std::map<Key, std::vector<std::size_t>>> groups;
        for (const auto& stack : Stacks()) {
            groups.emplace_back();
            for (const std::size_t slice : stack) groups.back()[m_Keys[slice]].push_back(slice);
        }
        return groups;
    }

    void TryOrders() {
        for (const KeyCandidate& candidate : KeyCandidates()) {
            if (IsTold(m_Keys)) return;
            if (candidate.isTime) TryOrder(candidate);
        }
    }

    struct Interval {
        double first;
        double last;

        double DistanceOf(double time) const { return std::max({first - time, time - last, 0.0}); }
    };
    using Intervals = std::map<Key, std::vector<Interval>>;

    /// Times that are another one for each image: at each position the first is of the first volume. Where an image is
    /// missing the others keep their volumes, those whose times are nearest.
    void TryOrder(const KeyCandidate& candidate) {
        auto groups = Groups();
        const auto timeOf = [&](std::size_t slice) { return ValuesOf(slice, candidate).front(); };
        for (auto& stack : groups) {
            for (auto& [key, slices] : stack) {
                std::sort(slices.begin(), slices.end(),
                          [&](std::size_t a, std::size_t b) { return timeOf(a) < timeOf(b); });
                for (std::size_t i = 0; i < slices.size(); ++i) {
                    if (timeOf(slices[i]) == kUnknown) return;
                    if (i > 0 && timeOf(slices[i]) == timeOf(slices[i - 1])) return;
                }
            }
        }
        Intervals intervals = TimesOfVolumes(groups, timeOf);
        std::vector<Key> keys = m_Keys;
        for (const auto& stack : groups) {
            for (const auto& [key, slices] : stack) {
                std::vector<double> times;
                for (const std::size_t slice : slices) times.push_back(timeOf(slice));
                const std::vector<std::size_t> ranks = NearestInOrder(times, intervals[key]);
                for (std::size_t i = 0; i < slices.size(); ++i) {
                    keys[slices[i]].push_back(static_cast<double>(ranks[i]) + 1);
                    m_Sets.guessed = m_Sets.guessed || IsDoubtful(times[i], intervals[key], ranks[i]);
                }
            }
        }
        Accept(std::move(keys), std::string("order of ") + candidate.name);
        m_Sets.ordered = true;
        const std::string named = std::string(candidate.name) + " (";
        std::erase_if(m_Sets.rejected, [&](const std::string& text) { return text.starts_with(named); });
    }

    /// From the positions that have an image of each volume.
    template <class Groups, class TimeOf>
    static Intervals TimesOfVolumes(const Groups& groups, TimeOf timeOf) {
        Intervals intervals;
        for (const auto& stack : groups) {
            for (const auto& [key, slices] : stack) {
                std::vector<Interval>& known = intervals[key];
                if (slices.size() < known.size()) continue;
                const bool more = slices.size() > known.size();
                if (more) known.assign(slices.size(), {});
                for (std::size_t i = 0; i < slices.size(); ++i) {
                    const double time = timeOf(slices[i]);
                    known[i] = more ? Interval{time, time}
                                    : Interval{std::min(known[i].first, time), std::max(known[i].last, time)};
                }
            }
        }
        return intervals;
    }

    /// Whether a time is not clearly nearer to its volume than to those beside it.
    static bool IsDoubtful(double time, const std::vector<Interval>& intervals, std::size_t rank) {
        const double own = 2 * intervals[rank].DistanceOf(time);
        if (own == 0) return false;
        return (rank > 0 && own > intervals[rank - 1].DistanceOf(time)) ||
               (rank + 1 < intervals.size() && own > intervals[rank + 1].DistanceOf(time));
    }

    /// For each of ascending times the index of an interval of its own, ascending too, so that the distances are least.
    static std::vector<std::size_t> NearestInOrder(const std::vector<double>& times,
                                                   const std::vector<Interval>& intervals) {
        // cost[i][j]: the least of the first i times among the first j intervals.
        const std::size_t rows = times.size();
        const std::size_t columns = intervals.size();
        std::vector<std::vector<double>> cost(rows + 1, std::vector<double>(columns + 1, 0));
        const auto taken = [&](std::size_t i, std::size_t j) {
            return cost[i - 1][j - 1] + intervals[j - 1].DistanceOf(times[i - 1]);
        };
        for (std::size_t i = 1; i <= rows; ++i) {
            for (std::size_t j = i; j <= columns; ++j) {
                cost[i][j] = j == i ? taken(i, j) : std::min(cost[i][j - 1], taken(i, j));
            }
        }
        std::vector<std::size_t> ranks(rows);
        std::size_t j = columns;
        for (std::size_t i = rows; i > 0; --i, --j) {
            while (j > i && cost[i][j] == cost[i][j - 1]) --j;
            ranks[i - 1] = j - 1;
        }
        return ranks;
    }

    /// Numbers that count volume after volume, or position after position, from 1, since the first files may be missing, or
    /// from the smallest.
    void TryInstances() {
        int smallest = m_Found.files[m_Series.slices.front().file].instance;
        for (const SliceRef& slice : m_Series.slices) smallest = std::min(smallest, m_Found.files[slice.file].instance);
        for (const int first : {1, smallest}) {
            if (TryCounting(first, static_cast<long long>(Stacks().size()), true) ||
                TryCounting(first, static_cast<long long>(m_Series.geometry.volumes), false)) {
                return;
            }
        }
    }

    /// The number less `first` is rest + `period` * times; images at one position have one rest where whole volumes follow
    /// each other, else one quotient.
    bool TryCounting(int first, long long period, bool byVolume) {
        std::vector<Key> keys = m_Keys;
        for (const auto& stack : Stacks()) {
            std::set<long long> common;
            for (const std::size_t slice : stack) {
                const long long number = static_cast<long long>(InstanceOf(slice)) - first;
                if (number < 0) return false;
                common.insert(byVolume ? number % period : number / period);
                keys[slice].push_back(static_cast<double>(byVolume ? number / period : number % period) + 1);
            }
            if (common.size() > 1) return false;
        }
        if (!IsTold(keys) || CountKeys(keys) != m_Series.geometry.volumes) return false;
        Accept(std::move(keys), "instance number");
        return true;
    }

    int InstanceOf(std::size_t slice) const { return m_Found.files[m_Series.slices[slice].file].instance; }

    void Guess() {
        std::vector<Key> keys = m_Keys;
        for (const auto& stack : Stacks()) {
            std::map<Key, double> ranks;
            for (const std::size_t slice : stack) keys[slice].push_back(ranks[m_Keys[slice]]++);
        }
        Accept(std::move(keys), "order at each position");
        m_Sets.guessed = true;
    }

    /// Slices without a position are with the first volume.
    void Collect() {
        std::map<Key, std::size_t> numbers;
        for (const auto& stack : Stacks()) {
            for (const std::size_t slice : stack) numbers.try_emplace(m_Keys[slice]);
        }
        std::size_t next = 0;
        for (auto& entry : numbers) entry.second = next++;
        const std::size_t volumes = std::max<std::size_t>(numbers.size(), 1);
        m_Sets.volumes.resize(volumes);
        m_Sets.members.resize(volumes);
        for (std::size_t i = 0; i < m_Keys.size(); ++i) {
            const auto found = numbers.find(m_Keys[i]);
            const std::size_t volume = found != numbers.end() ? found->second : 0;
            m_Sets.volumes[volume].push_back(m_Series.slices[i]);
            m_Sets.members[volume].push_back(i);
        }
        m_Sets.keys.assign(volumes, "");
        if (volumes < 2) return;
        for (const auto& [key, number] : numbers) {
            std::string text = m_Sets.order;
            for (std::size_t i = 0; i < key.size(); ++i) {
                text += (i == 0 ? " " : ", ") + (key[i] == kUnknown ? std::string("none") : ShortNumber(key[i]));
            }
            m_Sets.keys[number] = text;
        }
    }

    void FindMixed() {
        for (const KeyCandidate& candidate : KeyCandidates()) {
            if (!candidate.isStrong || m_Accepted.contains(candidate.name)) continue;
            std::size_t most = 0;
            for (const auto& members : m_Sets.members) {
                std::set<Key> values;
                Key last;
                for (const std::size_t slice : members) {
                    if (HasValues(slice, candidate, last)) continue;
                    last = ValuesOf(slice, candidate);
                    values.insert(last);
                }
                most = std::max(most, values.size());
            }
            if (most > 1) {
                m_Sets.mixed.push_back(std::string(candidate.name) + " (" + std::to_string(most) + " values)");
            }
        }
    }

    const FoundFiles& m_Found;
    const FoundSeries& m_Series;
    std::vector<Key> m_Keys;
    std::vector<std::vector<std::size_t>> m_Stacks;  // slices at each position
    std::set<std::string> m_Accepted;
    VolumeSets m_Sets;
};

}  // namespace

VolumeSets FindVolumes(const FoundFiles& found, const FoundSeries& series) {
    return Teller(found, series).Run();
}

}  // namespace korvane
