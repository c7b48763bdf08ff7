// The images of a derived series into files.
#pragma once

#include "../core/Watch.h"
#include "DerivedSeries.h"

#include <string>

class CFileWriter;

namespace korvane {

/// Writes PREFIX0001.dcm and so on, of more than 9999 with more digits. Ends early where the writer fails, which its files
/// know. Throws `Error`.
void WriteImages(DerivedSeries& series, CFileWriter& writer, const std::string& prefix, const Watch& watch,
                 const char* label);

}  // namespace korvane
