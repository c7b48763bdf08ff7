#include "Uih.h"

#include "../dataset/DateText.h"
#include "PrivateBlock.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace korvane::uih {

namespace {

constexpr double kMostTiles = 4096;
constexpr double kSecondsOfDay = 86400;

PrivateBlock ImageBlock(const DICOMObject& dataSet) {
    return {dataSet, 0x0065, "Image Private Header"};
}

/// The frames that the tiles show; null where they are not as many.
const VR* FindFrames(const DICOMObject& dataSet, int count) {
    const VR* const frames = ImageBlock(dataSet).Find(0x51);
    return frames != nullptr && frames->GetItemCount() == static_cast<std::uint32_t>(count) ? frames : nullptr;
}

}  // namespace

TileFacts ReadTiles(const DICOMObject& dataSet) {
    if (FindText(dataSet, tags::ImageType).find("VFRAME") == std::string::npos) return {};
    const std::vector<double> count = ImageBlock(dataSet).Numbers(0x50);
    if (count.size() != 1 || !(count[0] > 1 && count[0] <= kMostTiles)) return {};
    TileFacts tiles;
    tiles.count = static_cast<int>(count[0]);
    tiles.columns = static_cast<int>(std::ceil(std::sqrt(tiles.count)));
    tiles.rows = (tiles.count + tiles.columns - 1) / tiles.columns;
    const VR* const frames = FindFrames(dataSet, tiles.count);
    for (std::uint32_t i = 0; frames != nullptr && i < frames->GetItemCount(); ++i) {
        Vector3 position;
        if (!FindReals(*frames->GetItem(i), tags::ImagePositionPatient, position.data(), 3)) {
            tiles.positions.clear();
            break;
        }
        tiles.positions.push_back(position);
    }
    return tiles;
}

DiffusionFacts ReadDiffusion(const DICOMObject& holder) {
    DiffusionFacts facts;
    const PrivateBlock block = ImageBlock(holder);
    const std::vector<double> value = block.Numbers(0x09, TypeCode("FD"));
    if (value.size() != 1 || value[0] < 0) return facts;
    facts.bValue = value[0];
    facts.axes = DiffusionFacts::Axes::Image;
    const std::vector<double> direction = block.Numbers(0x37, TypeCode("FD"));
    if (direction.size() == 3) facts.direction = Vector3{direction[0], direction[1], direction[2]};
    return facts;
}

void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts) {
    const TileFacts tiles = ReadTiles(dataSet);
    const VR* const frames = tiles.count != 0 ? FindFrames(dataSet, tiles.count) : nullptr;
    if (frames == nullptr) return;
    std::vector<double> times;
    for (std::uint32_t i = 0; i < frames->GetItemCount(); ++i) {
        const auto time = ReadClock(FindText(*frames->GetItem(i), tags::AcquisitionTime));
        if (!time) return;
        times.push_back(std::chrono::duration<double>(*time).count());
    }
    // Past midnight.
    const double latest = *std::max_element(times.begin(), times.end());
    for (double& time : times) {
        if (latest - time > kSecondsOfDay / 2) time += kSecondsOfDay;
    }
    const double first = *std::min_element(times.begin(), times.end());
    for (const double time : times) facts.sliceTimes.push_back(time - first);
}

}  // namespace korvane::uih
