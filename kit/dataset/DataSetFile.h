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

/// Which functional groups (PS3.3 C.7.6.16) a data set is read with. Where frames are many they fill the memory, so that what
/// is not kept is passed over as it comes.
class KeptGroups {
public:
    static KeptGroups All() { return {true, true, kEvery}; }
    static KeptGroups None() { return {false, false, 0}; }
    /// The shared ones and, as the only item of the others, those of one frame, counted from 0; no others where it has none.
    static KeptGroups OfFrame(int frame) { return {true, true, static_cast<std::uint32_t>(frame)}; }

    bool AreAll() const { return m_bShared && m_Frame == kEvery; }
    /// Whether an item of such a sequence is kept, counted from 0.
    bool Keeps(const VR& sequence, std::uint32_t item) const;
    /// Takes what is not kept out of a data set with all groups, and sequences that are not kept out of any.
    void Trim(DICOMDataObject& dataSet, bool hasAll) const;

private:
    static constexpr std::uint32_t kEvery = UINT32_MAX;
    KeptGroups(bool shared, bool perFrame, std::uint32_t frame)
        : m_bShared(shared), m_bPerFrame(perFrame), m_Frame(frame) {}

    bool m_bShared;
    bool m_bPerFrame;
    std::uint32_t m_Frame;
};

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
/// `groups`: those that the data set is to have.
DataSetFile ReadDataSetFile(const NamedFile& from, int option, const Watch& watch = {}, const Leniency& leniency = {},
                            std::uint32_t leaveLarger = 0, const KeptGroups& groups = KeptGroups::All());

/// The name of a transfer syntax with its UID behind it; the UID alone when the name is not known.
std::string DescribeSyntax(const std::string& uid);

}  // namespace korvane
