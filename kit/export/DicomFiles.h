// A volume as a derived DICOM series.
#pragma once

#include "../core/Watch.h"
#include "../derived/DerivedSeries.h"
#include "../study/PlaneStream.h"
#include "Export.h"
#include "IrregularPolicy.h"

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

class CFileWriter;

namespace korvane {

/// One series: each plane in its place, with its own rescale.
class DicomFiles {
public:
    /// `derivation`: what became of the planes.
    DicomFiles(SeriesVolume& series, const std::string& derivation, const Watch& watch)
        : m_Series(series), m_Derivation(derivation), m_Watch(watch) {}

    /// Reads the volume of a part and writes PREFIX-0001.dcm and so on. What the writer did not take is told by its files.
    /// Throws `Error`.
    ExportedVolume Write(const ExportPart& part, Resampling resample, CFileWriter& writer, const std::string& prefix,
                         const char* label);

    /// After `Write`: what the files hold otherwise than the source.
    const std::vector<Finding>& GetFindings() const { return m_Findings; }

private:
    DerivedPlanes ListPlanes(const ExportedVolume& entry, bool resampled);
    std::span<const std::byte> ReadPlane(std::size_t plane);

    SeriesVolume& m_Series;
    std::string m_Derivation;
    Watch m_Watch;
    std::vector<Finding> m_Findings;
    bool m_bStreamed = false;  // planes are read when they are asked for
    std::unique_ptr<PlaneStream> m_pStream;
    std::size_t m_nNext = 0;
};

}  // namespace korvane
