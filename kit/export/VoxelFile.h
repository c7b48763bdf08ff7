// Volumes into a file of voxels on one grid: NIfTI, NRRD, MetaImage.
#pragma once

#include "../core/ExportFiles.h"
#include "../core/Watch.h"
#include "../study/PlaneStream.h"
#include "ExportFormat.h"
#include "IrregularPolicy.h"
#include "PreviewPlanes.h"
#include "ScanFacts.h"
#include "VoxelGrid.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

class ByteStream;

/// One file: a header, then the voxels of one volume after the other. Only one volume is in memory at a time, of slices that
/// can be read one by one and are written as they are only a few.
class VoxelFile {
public:
    /// `remote`: the writer's files are on a server.
    VoxelFile(SeriesVolume& series, const ExportFormat& format, const ExportOptions& options, bool remote);

    /// Reads the volumes of a part and writes them. `path` is without extension. What the writer did not take is told by
    /// its files. Throws `Error`.
    ExportedVolume Write(const ExportPart& part, Resampling resample, CFileWriter& writer, const std::string& path);

    /// After `Write`: what a preview of the first volume is made of, where one is asked for and it was not in memory; null
    /// otherwise.
    PreviewPlanes* GetPreviewPlanes() { return m_Preview ? &*m_Preview : nullptr; }
    /// After `Write`, of a format that holds times or where a sidecar was asked for: the texts beside the file, their
    /// extensions first.
    std::vector<std::pair<std::string, std::string>> MakeSidecars(const SidecarExtras& extras) const;

private:
    void CheckSlices(const ExportPart& part);
    void AddRange(ExportedVolume& entry, bool first) const;
    void ReadFacts(const ExportPart& part);
    void ReadGrid(const ExportPart& part, bool resample, const ExportedVolume& entry);
    void ReadPlace(const ExportedVolume& entry);
    std::vector<Rescale> ListRescales() const;
    std::unique_ptr<TaskProgress> BeginVolume() const;
    bool WritePlane(ByteStream& stream, std::size_t time, int plane, std::span<const std::byte> stored);
    bool WriteVolume(ByteStream& stream, std::size_t time);
    void WriteStreamed(ByteStream& stream, std::vector<StreamedVolume> volumes, ExportedVolume& entry);
    std::span<const std::byte> PlaneOf(int plane) const;
    std::span<const std::byte> RealValues(std::span<const std::byte> stored, const Rescale& rescale);
    ValueMapping DescribeValues() const;

    SeriesVolume& m_Series;
    const ExportFormat& m_Format;
    const ExportOptions& m_Options;
    Watch m_Watch;
    bool m_bRemote;
    std::optional<PreviewPlanes> m_Preview;  // of the first volume
    VoxelGrid m_Grid;
    Rescale m_Rescale;  // of all planes; the header's may not hold it
    std::optional<ScanFacts> m_Facts;
    std::vector<std::byte> m_Reals;                // of one plane
    std::vector<std::vector<Rescale>> m_Rescales;  // of planes, one for each volume
    bool m_bReal = false;  // 32-bit floats of real values, since slices have rescales of their own
};

}  // namespace korvane
