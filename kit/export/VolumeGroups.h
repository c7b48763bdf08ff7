// Which volumes of a series go into one file.
#pragma once

#include "IrregularPolicy.h"

#include <vector>

namespace korvane {

class SeriesVolume;

/// All volumes of a series: those that mean the same - one echo, one kind of image, one matrix of positions - are times of
/// one file, where the format holds times; echoes, phases, maps are files of their own. Where there are several files
/// their suffixes say what each is: "_e2", "_ph", "_adc", and "_v3" for what nothing tells.
std::vector<ExportPart> GroupVolumes(const SeriesVolume& series, bool times);

}  // namespace korvane
