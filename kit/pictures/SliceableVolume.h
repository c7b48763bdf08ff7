// A loaded volume as pictures of planes need it.
#pragma once

#include "../study/SeriesVolume.h"
#include "Slice.h"

#include <cstddef>
#include <optional>

namespace korvane {

/// What a volume holds, in a form and at a scale that slices can be made of; read once more where it has neither.
class SliceableVolume {
public:
    /// `volume` must outlive it. Throws `Error`.
    SliceableVolume(const Volume& volume, const SliceOptions& options);

    /// Reads the slices.
    static void MakeComparable(SeriesVolume& series, const SliceOptions& options);

    SeriesVolume& Get() { return *m_pSeries; }
    /// Of voxels that were read once more.
    std::size_t GetBytes() const { return m_Read ? m_Read->GetVoxels().size() : 0; }

private:
    SeriesVolume* m_pSeries;
    std::optional<SeriesVolume> m_Read;
};

}  // namespace korvane
