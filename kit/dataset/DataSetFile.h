// One DICOM file, read with all that the Kit wants to know about the reading.
#pragma once

#include "../core/Watch.h"
#include "Toolkit.h"

#include <cstdint>
#include <memory>
#include <string>

namespace korvane {

struct DataSetFile {
    std::unique_ptr<DICOMDataObject> dataSet;  ///< null: not a DICOM file
    std::string transferSyntax;                ///< (0002,0010), or that of the encoding where it is missing
    bool complete = false;                     ///< the parse met no fault
    bool hasPreamble = false;                  ///< "DICM" stood at byte 128

    // Pixel Data (7FE0,0010) of the top level:
    bool hasPixels = false;
    bool encapsulated = false;
    std::uint64_t pixelLength = 0;    ///< bytes that its length field promises; 0 for encapsulated data
    std::uint64_t pixelsPresent = 0;  ///< how many of them the file can hold
};

/// Reads a stream; `option` as for `LoadDICOMFile`. It counts as DICOM when "DICM" stands at byte 128, or when it begins
/// with an element of group 0002 or 0008, either byte order. Deflated data is inflated.
DataSetFile ReadDataSet(Buffer& buffer, int option);

/// The same of a file. Throws `Error` when it cannot be read.
DataSetFile ReadDataSetFile(const std::string& path, int option, const Watch& watch = {});

/// The name of a transfer syntax with its UID behind it; the UID alone when the name is not known.
std::string DescribeSyntax(const std::string& uid);

}  // namespace korvane
