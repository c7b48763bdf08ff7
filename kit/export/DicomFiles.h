// A volume as a derived DICOM series.
#pragma once

#include "../core/Watch.h"
#include "../derived/DerivedSeries.h"
#include "Export.h"
#include "IrregularPolicy.h"

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

    SeriesVolume& m_Series;
    std::string m_Derivation;
    Watch m_Watch;
    std::vector<Finding> m_Findings;
};

}  // namespace korvane
