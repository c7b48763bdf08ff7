#include "VolumeSets.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <optional>
#include <set>

namespace korvane {

namespace {

using Key = std::array<int, 2>;

/// Which volume each slice of the series belongs to.
using Numbers = std::vector<std::size_t>;

/// By a key of each slice, volumes in the keys' order; nothing where the keys do not say.
std::optional<Numbers> ByKey(const FoundSeries& series, const std::function<Key(const SliceRef&)>& keyOf) {
    std::map<Key, std::size_t> ranks;
    for (const SliceRef& slice : series.slices) ranks.try_emplace(keyOf(slice));
    if (ranks.size() != series.geometry.volumes) return std::nullopt;
    std::size_t rank = 0;
    for (auto& entry : ranks) entry.second = rank++;
    Numbers numbers(series.slices.size());
    for (const auto& stack : series.geometry.stacks) {
        std::set<std::size_t> met;
        for (const std::size_t index : stack) {
            numbers[index] = ranks[keyOf(series.slices[index])];
            if (!met.insert(numbers[index]).second) return std::nullopt;
        }
    }
    return numbers;
}

Numbers ByRank(const FoundSeries& series) {
    Numbers numbers(series.slices.size());
    for (const auto& stack : series.geometry.stacks) {
        for (std::size_t i = 0; i < stack.size(); ++i) numbers[stack[i]] = i;
    }
    return numbers;
}

Numbers TellApart(const FoundFiles& found, const FoundSeries& series, std::string& order) {
    const auto header = [&](const SliceRef& slice) -> const ImageHeader& { return found.files[slice.file]; };
    struct Way {
        const char* name;
        std::function<Key(const SliceRef&)> key;
    };
    int firstInstance = header(series.slices.front()).instance;
    for (const SliceRef& slice : series.slices) firstInstance = std::min(firstInstance, header(slice).instance);
    const auto positions = static_cast<long long>(series.geometry.stacks.size());
    const auto blockOf = [&](const SliceRef& slice, int first) {
        return Key{static_cast<int>((static_cast<long long>(header(slice).instance) - first) / positions), 0};
    };
    const Way ways[] = {
        {"temporal position",
         [&](const SliceRef& s) {
             return Key{header(s).temporal, 0};
         }},
        {"acquisition number",
         [&](const SliceRef& s) {
             return Key{header(s).acquisition, 0};
         }},
        {"echo number",
         [&](const SliceRef& s) {
             return Key{header(s).echo, 0};
         }},
        {"temporal position and echo number",
         [&](const SliceRef& s) {
             return Key{header(s).temporal, header(s).echo};
         }},
        {"acquisition and echo number",
         [&](const SliceRef& s) {
             return Key{header(s).acquisition, header(s).echo};
         }},
        {"instance number", [&](const SliceRef& s) { return blockOf(s, 1); }},  // the first files may be missing
        {"instance number", [&](const SliceRef& s) { return blockOf(s, firstInstance); }},
    };
    for (const Way& way : ways) {
        if (auto numbers = ByKey(series, way.key)) {
            order = way.name;
            return std::move(*numbers);
        }
    }
    order = "order at each position";
    return ByRank(series);
}

}  // namespace

VolumeSets FindVolumes(const FoundFiles& found, const FoundSeries& series) {
    VolumeSets sets;
    Numbers numbers(series.slices.size(), 0);
    if (series.geometry.volumes > 1) numbers = TellApart(found, series, sets.order);
    const std::size_t volumes = series.geometry.volumes;
    sets.volumes.resize(volumes);
    sets.members.resize(volumes);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        sets.volumes[numbers[i]].push_back(series.slices[i]);
        sets.members[numbers[i]].push_back(i);
    }
    for (std::size_t i = 0; i < volumes; ++i) {
        sets.keys.push_back(volumes > 1 ? "volume " + std::to_string(i + 1) + " by " + sets.order : "");
    }
    return sets;
}

}  // namespace korvane
