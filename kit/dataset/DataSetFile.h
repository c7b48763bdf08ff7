// One DICOM file, read with all that the Kit wants to know about the reading.
#pragma once

#include "../core/Finding.h"
#include "../core/Watch.h"
#include "Leniency.h"
#include "Toolkit.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

class LeftValues;

/// A file as messages call it, and where its bytes lie: elsewhere for what came out of an archive or a stream.
struct NamedFile {
    NamedFile(std::string path) : name(path), place(std::move(path)) {}
    NamedFile(const char* path) : name(path), place(path) {}
    NamedFile(std::string called, std::string path) : name(std::move(called)), place(std::move(path)) {}

    std::string name;
    std::string place;
};

struct DataSetFile {
    std::unique_ptr<DICOMDataObject> dataSet;  ///< null: not a DICOM file
    std::string transferSyntax;                ///< (0002,0010), or that of the encoding where it is missing
    bool complete = false;                     ///< the parse met no fault
    bool hasPreamble = false;                  ///< "DICM" stood at byte 128
    std::vector<Finding> findings;             ///< what was forgiven
    std::shared_ptr<LeftValues> left;          ///< where values are that the data set does not hold; null: it has all

    // Pixel Data (7FE0,0010) of the top level:
    bool hasPixels = false;
    bool encapsulated = false;
    std::uint64_t pixelLength = 0;    ///< bytes that its length field promises; 0 for encapsulated data
    std::uint64_t pixelsPresent = 0;  ///< how many of them the file can hold
};

/// Beside the toolkit's `ParseOption`: functional groups (PS3.3 C.7.6.16), which fill the memory where frames are many, are
/// passed over as they come. Of damaged data sets they stay.
constexpr int kWithoutFrameGroups = 1 << 8;

/// The bytes that show whether something is a data set.
constexpr std::size_t kHeadOfDataSet = 132;

/// Whether what begins so counts as DICOM, as for `ReadDataSet`. `head`: its first `kHeadOfDataSet` bytes, or all it has.
bool LooksLikeDataSet(std::span<const unsigned char> head);

/// Reads a stream; `option` as for `LoadDICOMFile`. It counts as DICOM when "DICM" stands at byte 128 or at its start, or
/// when it begins with an element of group 0002 or 0008, either byte order. Deflated data is inflated. A stream is read
/// once: of the leniencies only those about the encoding as a whole apply.
DataSetFile ReadDataSet(Buffer& buffer, int option);

/// The same of bytes in memory; where the toolkit meets a fault they are read a second time, with all leniencies.
DataSetFile ReadDataSet(std::span<const unsigned char> bytes, int option, const Leniency& leniency = {});

/// A `leaveLarger` for those who look at large values, or pass them on.
constexpr std::uint32_t kLeftInFile = 64 * 1024;

/// The same of a file, whose name findings and errors bear. Throws `Error` when it cannot be read. `leaveLarger`: values
/// of so many bytes and more stay in the file (`LeftValues.h`), and only those may ask for it who expect them there; 0: none.
DataSetFile ReadDataSetFile(const NamedFile& from, int option, const Watch& watch = {}, const Leniency& leniency = {},
                            std::uint32_t leaveLarger = 0);

/// The name of a transfer syntax with its UID behind it; the UID alone when the name is not known.
std::string DescribeSyntax(const std::string& uid);

}  // namespace korvane
