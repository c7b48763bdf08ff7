#include "VolumeSets.h"

#include "SeriesWarnings.h"

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
        if (IsFilled(keys) && (!candidate.isTime || IsTold(keys))) {
            Accept(std::move(keys), candidate.name);
            m_Accepted.insert(candidate.name);
        } else {
            m_Sets.rejected.push_back(std::string(candidate.name) + " (" + std::to_string(values.size()) + " values)");
            m_Accepted.insert(candidate.name);  // told of already
        }
    }

    /// Numbers that count volume after volume, from 1, since the first files may be missing, or from the smallest.
    void TryInstances() {
        int smallest = m_Found.files[m_Series.slices.front().file].instance;
        for (const SliceRef& slice : m_Series.slices) smallest = std::min(smallest, m_Found.files[slice.file].instance);
        for (const int first : {1, smallest}) {
            std::vector<Key> keys = m_Keys;
            for (std::size_t i = 0; i < keys.size(); ++i) {
                const auto number = static_cast<long long>(m_Found.files[m_Series.slices[i].file].instance) - first;
                keys[i].push_back(std::floor(static_cast<double>(number) / static_cast<double>(Stacks().size())));
            }
            if (IsTold(keys) && CountKeys(keys) == m_Series.geometry.volumes) {
                Accept(std::move(keys), "instance number");
                return;
            }
        }
    }

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
                for (const std::size_t slice : members) values.insert(ValuesOf(slice, candidate));
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
