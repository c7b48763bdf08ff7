#include "DicomFiles.h"

#include "../core/Error.h"
#include "../derived/DerivedImages.h"
#include "../study/PlaceRescale.h"
#include "../study/SeriesVolume.h"
#include "ExportReport.h"

#include "base/Number.h"
#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

namespace korvane {

ExportedVolume DicomFiles::Write(const ExportPart& part, Resampling resample, CFileWriter& writer,
                                 const std::string& prefix, const char* label) {
    m_bStreamed = !resample && m_Series.CanStream(part.slices);
    if (m_bStreamed) {
        m_Series.Place(part.slices);
        TaskProgress progress(m_Watch, "reading", m_Series.GetVolume().GetPlaneCount());
        m_Series.ReadPlanes([&](int, std::span<const std::byte>) { progress.Step(); });
    } else {
        m_Series.Load(part.slices);
    }
    if (resample && m_Series.RescalesDiffer()) m_Series.BringToOneScale(false);
    if (resample && m_Series.GetVolume().GetPlane(0)->m_pData == nullptr) {
        throw Error(ErrorKind::Unsupported,
                    std::string("voxels of this type are not resampled: ") + WordOf(m_Series.GetType()));
    }
    EvenPlanes even;
    if (resample) even.PutInto(m_Series, resample, m_Series.GetPaddingValue(), m_Watch);
    ExportedVolume entry = DescribeVolume(m_Series, part, false);
    entry.filled = even.CountFilled();
    entry.fill = even.GetFill();
    DerivedSeries series(ListPlanes(entry, static_cast<bool>(resample)),
                         {.source = m_Series.GetHandle(), .derivation = m_Derivation});
    WriteImages(series, writer, prefix + "-", m_Watch, label);
    m_Findings = series.ListFindings();
    if (series.GetError() > 0) {
        entry.values.formula = "rounded";
        entry.values.remarks.push_back("values are rounded to 16 bits, real ones by at most " +
                                       platform::FormatReal(series.GetError()) +
                                       "; slope and intercept are in the files");
    }
    return entry;
}

DerivedPlanes DicomFiles::ListPlanes(const ExportedVolume& entry, bool resampled) {
    DerivedPlanes made;
    const FramePlace& place = m_Series.GetPlace();
    made.type = m_Series.GetType();
    made.columns = static_cast<std::size_t>(entry.size[0]);
    made.rows = static_cast<std::size_t>(entry.size[1]);
    made.orientation = place.orientation;
    made.spacing = {place.spacing[1], place.spacing[0]};
    made.isSized = place.hasSpacing;
    made.thickness = entry.spacing[2];
    made.isPlaced = place.hasPosition;
    made.positions = entry.positions;
    made.rescales = {RealRescaleOf(place)};
    made.unit = place.unit;
    made.isAsRead = true;
    made.padding = m_Series.GetPadding();
    made.isInverted = m_Series.GetHeader().form.photometric == "MONOCHROME1";
    const FramePlaces planes = m_Series.GetPlanePlaces();
    if (!resampled && planes.GetCount() == made.positions.size()) {
        made.rescales.clear();
        for (std::size_t k = 0; k < planes.GetCount(); ++k) {
            if (made.isPlaced) made.positions[k] = planes.GetPosition(k);
            made.rescales.push_back(RealRescaleOf(planes.GetPlane(k)));
        }
    }
    const std::size_t bytes = made.columns * made.rows * SizeOf(made.type);
    made.planeOf = [this, bytes](std::size_t plane) -> std::span<const std::byte> {
        if (m_bStreamed) return ReadPlane(plane);
        const void* const stored = m_Series.GetVolume().GetPlane(static_cast<int>(plane))->m_pData;
        if (stored != nullptr) return {static_cast<const std::byte*>(stored), bytes};
        return m_Series.GetVoxels().subspan(plane * bytes, bytes);
    };
    return made;
}

/// They are asked for in their order, now and then from the first on again.
std::span<const std::byte> DicomFiles::ReadPlane(std::size_t plane) {
    if (!m_pStream || plane < m_nNext) {
        m_pStream = m_Series.StreamPlanes(false);
        m_nNext = 0;
    }
    std::span<const std::byte> voxels;
    for (; m_nNext <= plane; ++m_nNext) voxels = m_pStream->ReadNext();
    return voxels;
}

}  // namespace korvane
