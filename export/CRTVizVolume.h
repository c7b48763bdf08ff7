// RTViz vox volumes.
#pragma once

#include "CVolumeExport.h"
#include "ExportMapping.h"

#include <array>
#include <string>

namespace korvane_detail {
struct VoxelRange;
}

/// Writes a volume as one file "name.vox": a short text header ("Vox1999a"), the voxels right behind it, first slice
/// first. The matrix in the header holds the spacing in millimetres.
///
/// Voxels by pixel type:
///   PT_BYTE              8 bits, as they are
///   PT_SHORT, PT_USHORT  16 bits, low byte first, 12 of them significant: value - minimum, divided by 16 (truncated)
///                        where maximum - minimum + 1 is above 4096
///   others               none: `Save` fails
///
/// Minimum and maximum are the volume's (CVolume::GetMin, GetMax, their low 32 bits). Where the range that they give
/// is below 1 or above 65535, which assembly's starting values do, the true ones are searched in the planes instead.
///
/// A copy is as shallow as one of CVolumeExport.
class KORVANE_API CRTVizVolume : public CVolumeExport {
public:
    CRTVizVolume();
    CRTVizVolume(const CRTVizVolume&) = default;
    CRTVizVolume& operator=(const CRTVizVolume&) = default;
    ~CRTVizVolume() override;

    /// Takes the volume of `series`, nothing else.
    // NOLINTNEXTLINE(misc-unconventional-assign-operator): callers chain it as the base declares it
    CVolumeExport& operator=(CDicomVolume& series) override;

    /// Writes dir + "\\" + name + ".vox" (a BACKSLASH; the local writer takes it for a separator, an FTP server may
    /// not), the callback being called after each slice. False without an error text when the file cannot be opened or
    /// there is no volume. False with an error text, and without a file, for a pixel type that the format does not
    /// have.
    ///
    /// True as well when the disk was full: writing is not checked. True also when the callback stopped the work; then
    /// the writer stays open, its file short.
    bool Save(const char* dir, const char* name) override;

    /// What `Save` does to the voxels of the volume held: minimum and maximum at the time of the call count, and are
    /// searched as there. Without a volume or its pixels, and for a pixel type that has no form, `bits` is 0.
    ExportMapping GetMapping() const;

private:
    bool IsBytes() const;
    bool HasForm() const;
    korvane_detail::VoxelRange PlaneRange(int plane) const;
    korvane_detail::VoxelRange ChooseRange() const;
    void WriteHeader();
    bool WriteVoxels();

    // Declared by the class and not used by the export.
    std::array<std::string, 3> m_Texts;
    std::array<std::string, 32> m_Names;
    std::string m_Label;
};
