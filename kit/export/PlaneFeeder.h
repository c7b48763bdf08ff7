// Planes for an exporter of the module, without a volume in memory.
#pragma once

#include "../core/Watch.h"
#include "../study/PlaneStream.h"
#include "../study/SeriesVolume.h"
#include "ExportFormat.h"

#include "volume/CPercent.h"

#include <cstddef>
#include <exception>
#include <memory>
#include <vector>

namespace korvane {

/// The exporter's callback, by which it asks for a stop before or behind each plane: what it takes next is brought then. Of the
/// volume's planes that one alone has its pixels; the others have some with the range of all, from which exporters work out
/// what they do to values.
class PlaneFeeder : public CPercent {
public:
    /// Whether the slices of a volume can be fed. Throws `Error`.
    static bool CanFeed(const SeriesVolume& series, const std::vector<SliceRef>& slices);

    /// `series`: placed, by slices that can be fed. The volume's planes are this object's until it goes.
    PlaneFeeder(SeriesVolume& series, const ExportFormat& format, const Watch& watch);
    ~PlaneFeeder() override;
    PlaneFeeder(const PlaneFeeder&) = delete;
    PlaneFeeder& operator=(const PlaneFeeder&) = delete;

    /// First: reads all planes, for their range, and for the scale that they are brought to where they have several. False
    /// where that needs the whole volume (`SeriesVolume::ScalePlanes`). Throws `Error`.
    bool Measure();
    /// Before the exporter begins, once; `progress` counts planes. Throws `Error`.
    void Begin(TaskProgress& progress);
    bool OnProgress(short percent) override;
    /// After the exporter: what reading or the watcher threw; null without.
    std::exception_ptr GetThrown() const;
    /// When all was saved: throws `Error` where the planes were not those whose range the exporter went by. Tells of their
    /// scale.
    void Finish();

private:
    void PutNext();
    void FillRange();

    SeriesVolume& m_Series;
    const ExportFormat& m_Format;
    Watch m_Watch;
    std::vector<std::byte> m_Range;  // a plane with the smallest and the largest value
    std::unique_ptr<PlaneStream> m_pStream;
    TaskProgress* m_pProgress = nullptr;
    bool m_bScaled;
    int m_nPlanes;
    int m_nGiven = 0;
    int m_nPresent = 0;  // the plane that has its pixels
    std::exception_ptr m_Thrown;
};

}  // namespace korvane
