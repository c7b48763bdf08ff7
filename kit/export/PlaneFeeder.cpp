#include "PlaneFeeder.h"

#include "../core/Error.h"
#include "../study/VoxelDispatch.h"

#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <cstring>

namespace korvane {

bool PlaneFeeder::CanFeed(const SeriesVolume& series, const std::vector<SliceRef>& slices) {
    const PixelForm& form = series.GetHeader().form;
    return form.rows * form.columns > 1 && series.CanStream(slices);  // a single voxel has no room for a range
}

PlaneFeeder::PlaneFeeder(SeriesVolume& series, const ExportFormat& format, const Watch& watch)
    : m_Series(series), m_Format(format), m_Watch(watch), m_bScaled(series.HasUptake() || series.RescalesDiffer()),
      m_nPlanes(series.GetVolume().GetPlaneCount()) {}

bool PlaneFeeder::Measure() {
    {
        TaskProgress progress(m_Watch, "reading", m_nPlanes);
        if (!m_bScaled) {
            m_Series.ReadPlanes([&](int, std::span<const std::byte>) { progress.Step(); });
        } else if (!m_Series.ScalePlanes(true, [&] { progress.Step(); })) {
            return false;
        }
    }
    m_Series.FitForModule();
    FillRange();
    for (int plane = 0; plane < m_nPlanes; ++plane) m_Series.GetVolume().GetPlane(plane)->Alloc(m_Range.data());
    return true;
}

PlaneFeeder::~PlaneFeeder() {
    if (m_Range.empty()) return;
    for (int plane = 0; plane < m_nPlanes; ++plane) m_Series.GetVolume().GetPlane(plane)->Alloc(nullptr);
}

void PlaneFeeder::FillRange() {
    int dim[4];
    m_Series.GetVolume().GetDimensions(dim);
    const std::size_t count = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]);
    const MeasuredRange range = m_Series.GetWholeRange();
    WithVoxelType(m_Series.GetType(), [&](auto zero) {
        using Voxel = decltype(zero);
        m_Range.resize(count * sizeof(Voxel));
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = static_cast<Voxel>(i == 0 ? range.smallest : range.largest);
            std::memcpy(m_Range.data() + i * sizeof value, &value, sizeof value);
        }
    });
}

void PlaneFeeder::Begin(TaskProgress& progress) {
    m_pProgress = &progress;
    m_pStream = m_Series.StreamPlanes(m_Format.IsLastFirst());
    // Each call is another percentage of a single unit, so that none is passed over.
    SetTotElab(1);
    StartProgress();
    if (m_Format.CallsBehindPlanes()) PutNext();
}

void PlaneFeeder::PutNext() {
    CVolume& volume = m_Series.GetVolume();
    if (m_nGiven > 0) volume.GetPlane(m_nPresent)->Alloc(m_Range.data());
    if (m_nGiven == m_nPlanes) return;
    const std::span<const std::byte> voxels = m_pStream->ReadNext();
    m_nPresent = m_Format.IsLastFirst() ? m_nPlanes - 1 - m_nGiven : m_nGiven;
    ++m_nGiven;
    // Exporters read them alone.
    volume.GetPlane(m_nPresent)->Alloc(const_cast<std::byte*>(voxels.data()));
}

/// The module would take an exception for a failure of its own.
bool PlaneFeeder::OnProgress(short /*percent*/) {
    try {
        m_pProgress->Step();
        PutNext();
        return false;
    } catch (...) {
        m_Thrown = std::current_exception();
        return true;
    }
}

std::exception_ptr PlaneFeeder::GetThrown() const {
    return m_Watch.IsStopped() ? nullptr : m_Thrown;
}

void PlaneFeeder::Finish() {
    const MeasuredRange range = m_pStream->GetWholeRange();
    const MeasuredRange& before = m_Series.GetWholeRange();
    if (m_nGiven == m_nPlanes && range.smallest == before.smallest && range.largest == before.largest) {
        if (m_bScaled) m_Series.TellScale(m_pStream->GetScaleError());
        return;
    }
    throw Error(ErrorKind::Damaged, "files of the series have changed while they were exported");
}

}  // namespace korvane
