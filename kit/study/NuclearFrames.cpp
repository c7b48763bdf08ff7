#include "NuclearFrames.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace korvane {

namespace {

/// In the order of their entries in `FrameKeys`.
constexpr Tag kVectors[] = {
    tags::EnergyWindowVector, tags::DetectorVector, tags::PhaseVector,       tags::RotationVector,
    tags::RRIntervalVector,   tags::TimeSlotVector, tags::AngularViewVector, tags::TimeSliceVector,
};

std::uint16_t NumberAt(const VR& vector, std::uint32_t frame) {
    return platform::LoadLittle<std::uint16_t>(vector.m_pData + 2 * std::size_t{frame});
}

/// A number for each frame.
const VR* FindVector(const DICOMDataObject& dataSet, Tag tag, std::uint32_t frames) {
    const VR* const vector = FindElement(dataSet, tag);
    const bool isWhole = vector != nullptr && vector->m_pData != nullptr && vector->m_Length / 2 == frames;
    return isWhole ? vector : nullptr;
}

bool IsNamed(const DICOMDataObject& dataSet, Tag wanted) {
    const VR* const pointer = FindElement(dataSet, tags::FrameIncrementPointer);
    for (std::uint32_t at = 0; pointer != nullptr && pointer->m_pData != nullptr && at + 4 <= pointer->m_Length;
         at += 4) {
        const Tag tag = MakeTag(platform::LoadLittle<std::uint16_t>(pointer->m_pData + at),
                                platform::LoadLittle<std::uint16_t>(pointer->m_pData + at + 2));
        if (tag == wanted) return true;
    }
    return false;
}

}  // namespace

std::optional<NuclearFrames> NuclearFrames::Read(const DICOMDataObject& dataSet, const ImageHeader& header) {
    if (header.common->modality != "NM" || header.frames < 2 || !header.HoldsFrames()) return std::nullopt;
    const auto count = static_cast<std::uint32_t>(header.frames);
    NuclearFrames frames;
    bool isTold = false;
    frames.m_Keys.resize(count);
    for (std::size_t i = 0; i < std::size(kVectors); ++i) {
        const VR* const vector = IsNamed(dataSet, kVectors[i]) ? FindVector(dataSet, kVectors[i], count) : nullptr;
        if (vector == nullptr) continue;
        isTold = true;
        frames.m_bTurns = frames.m_bTurns || kVectors[i] == tags::AngularViewVector;
        for (std::uint32_t frame = 0; frame < count; ++frame) {
            frames.m_Keys[frame].values[FrameKeys::kNuclear + i] = NumberAt(*vector, frame);
        }
    }
    const VR* const slices =
        IsNamed(dataSet, tags::SliceVector) ? FindVector(dataSet, tags::SliceVector, count) : nullptr;
    for (std::uint32_t frame = 0; slices != nullptr && frame < count; ++frame) {
        frames.m_Slices.push_back(NumberAt(*slices, frame));
    }
    if (!isTold && frames.m_Slices.empty()) return std::nullopt;
    return frames;
}

const DICOMObject* NuclearFrames::FindDetector(const DICOMDataObject& dataSet, std::uint32_t frame) {
    const VR* const detectors = FindElement(dataSet, tags::DetectorInformationSequence);
    if (detectors == nullptr || detectors->GetItemCount() == 0) return nullptr;
    const VR* const vector = FindElement(dataSet, tags::DetectorVector);
    std::uint32_t number = 1;
    if (vector != nullptr && vector->m_pData != nullptr && frame < vector->m_Length / 2)
        number = NumberAt(*vector, frame);
    return number >= 1 && number <= detectors->GetItemCount() ? detectors->GetItem(number - 1) : nullptr;
}

FramePlaces NuclearFrames::PlacesOf(const FramePlaces& detectors, double sliceSpacing) const {
    FramePlaces places;
    places.Reserve(detectors.GetCount());
    for (std::size_t frame = 0; frame < detectors.GetCount(); ++frame) {
        FramePlace place = detectors.Get(frame);
        if (m_bTurns && !HasSlices()) place.hasPosition = place.hasOrientation = false;
        if (HasSlices()) {
            if (sliceSpacing == 0 || !place.hasPosition || !place.hasOrientation)
                return FramePlaces(detectors.Get(0), 1);
            const auto& o = place.orientation;
            const double normal[] = {o[1] * o[5] - o[2] * o[4], o[2] * o[3] - o[0] * o[5], o[0] * o[4] - o[1] * o[3]};
            for (std::size_t axis = 0; axis < 3; ++axis) {
                place.position[axis] += (m_Slices[frame] - 1) * sliceSpacing * normal[axis];
            }
        }
        places.Add(place);
    }
    return places;
}

FrameKeyList NuclearFrames::KeysOf(const FrameKeys& own) const {
    FrameKeyList list;
    for (FrameKeys keys : m_Keys) {
        std::copy_n(own.values.begin(), FrameKeys::kNuclear, keys.values.begin());
        list.Add(keys);
    }
    return list;
}

}  // namespace korvane
