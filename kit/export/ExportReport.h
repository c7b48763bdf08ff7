// What an export's report says of a series and its volumes.
#pragma once

#include "Export.h"

namespace korvane {

class SeriesVolume;
struct ExportPart;
struct ExportPlan;

/// The series, what is irregular about it, and which files the plan leaves out; with those of other series that were found,
/// which takes time for each of them.
void AddSeries(ExportReport& report, const SeriesVolume& series, const ExportPlan& plan, bool otherSeries);

/// The loaded volume of a part, without its values' mapping and its files. `lastFirst`: its file begins with the last slice.
ExportedVolume DescribeVolume(SeriesVolume& series, const ExportPart& part, bool lastFirst);

}  // namespace korvane
