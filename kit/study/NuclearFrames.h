// Frames of nuclear medicine, which vectors tell apart (PS3.3 C.8.4.8).
#pragma once

#include "FrameKeys.h"
#include "ImageHeader.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace korvane {

class NuclearFrames {
public:
    /// None of data sets without vectors that Frame Increment Pointer (0028,0009) names and that have a number for each
    /// frame, and where the pixel data cannot hold as many frames as it claims.
    static std::optional<NuclearFrames> Read(const DICOMDataObject& dataSet, const ImageHeader& header);

    /// The item of Detector Information Sequence (0054,0022) for a frame, which places it; null without.
    static const DICOMObject* FindDetector(const DICOMDataObject& dataSet, std::uint32_t frame);

    /// Whether frames are slices of volumes. Others lie all at one place, or, as views from around the patient, at none.
    bool HasSlices() const { return !m_Slices.empty(); }

    /// Of each frame; a single one where slices have no distance. `detectors`: of each frame, as its detector lies.
    FramePlaces PlacesOf(const FramePlaces& detectors, double sliceSpacing) const;
    /// `own`: what the data set says of all of them.
    FrameKeyList KeysOf(const FrameKeys& own) const;

private:
    std::vector<FrameKeys> m_Keys;        // only those of the vectors
    std::vector<std::uint16_t> m_Slices;  // from 1; empty without
    bool m_bTurns = false;
};

}  // namespace korvane
