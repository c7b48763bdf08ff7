// Analyze 7.5 volumes.
#pragma once

#include "AnalyzeHeader.h"
#include "CVolumeExport.h"
#include "ExportMapping.h"

#include <cstdint>
#include <string>
#include <vector>

class DICOMDataObject;

namespace korvane_detail {
class AnalyzeStream;
}

/// Writes a volume as an Analyze 7.5 pair, a header "name.hdr" of 348 bytes and raw voxels "name.img", and reads such
/// a pair back.
///
/// Written files are big-endian. Slices are stored LAST SLICE FIRST, rows and columns in memory order; `Load` reads
/// first slice first, so saving and loading again reverses the slices. This is deliberate: hosts depend on both orders.
///
/// Voxels by pixel type:
///   PT_SHORT   signed 16-bit
///   PT_USHORT  signed 16-bit: halved where Modality (0008,0060) is XA, else less 32767 (65535 becomes 32768, stored
///              80 00). Nothing in the header says so.
///   PT_BYTE    unsigned 8-bit
///   others     none: the header says unsigned 8-bit and the data file is empty
///
/// A copy is as shallow as one of CVolumeExport.
class KORVANE_API CAnalyzeVolume : public CVolumeExport {
public:
    CAnalyzeVolume();
    CAnalyzeVolume(const CAnalyzeVolume&) = default;
    CAnalyzeVolume& operator=(const CAnalyzeVolume&) = default;

    /// Takes the volume of `series` and fills the header from it and from the first data set of the series (Modality,
    /// and Bits Stored (0028,0101); 0 where it is missing). Halving and shift, once chosen, stay for volumes assigned
    /// later, signed ones included: use a new exporter for each series.
    // NOLINTNEXTLINE(misc-unconventional-assign-operator): callers chain it as the base declares it
    CVolumeExport& operator=(CDicomVolume& series) override;

    /// Writes dir + "/" + name + ".hdr" and ".img" through the writer, the callback being called before each slice.
    /// False, without an error text, when a file cannot be opened or written, when there is no volume, and when the
    /// header cannot be its own (a side above 32767); what has been written by then stays. True as well when the
    /// callback stopped the work, which leaves a short data file. A failed `Close` of the writer is not noticed.
    ///
    /// After `Load` or `ReadHeader` of a little-endian pair the voxels are written as zeros.
    bool Save(const char* dir, const char* name) override;

    /// What `Save` does to the voxels of the volume held. Without a volume, and for a pixel type that has no form,
    /// `bits` is 0.
    ExportMapping GetMapping() const;

    /// Reads the header file `path` (with its extension) and finds out its byte order: big-endian where the first
    /// number reads 348 that way, little-endian otherwise, without a further test. The volume stays what it is.
    /// Returns true, or throws the `errno` of the failure as an `int` (EIO for a short file, and for a byte of 255 in
    /// the one-byte fields regular, hkey_un0 and orient), and then the header in memory is unchanged.
    bool ReadHeader(const char* path);

    /// Reads `base` + ".hdr" and `base` + ".img" into a new volume, per-plane storage, spacing from the header, all
    /// planes at the origin. The reference to the volume held before is dropped. Types: 2 becomes PT_BYTE, 4 PT_SHORT,
    /// 16 PT_FLOAT. The callback is called after each slice and cannot stop the work.
    ///
    /// 32-bit floats of a big-endian pair come out wrong: the two bytes of each half are exchanged, the halves are not.
    /// Hosts depend on that result as it is.
    ///
    /// Returns true, or throws a `char*`: the text of a data type that is not supported, which leaves a new volume
    /// without dimensions, or the system's text when a file is missing, too short for its header or damaged, which
    /// leaves no volume.
    bool Load(const char* base);

    /// The header in memory: all zero at construction, then of the last assignment, `Load` or `ReadHeader`.
    const AnalyzeHeader& GetHeader() const { return m_Header; }

private:
    void ChooseVoxelMapping(DICOMDataObject* first);
    bool HeaderIsOfVolume();
    bool HasSamples() const;
    void WriteVoxels(korvane_detail::AnalyzeStream& stream);
    void WriteSlice16(korvane_detail::AnalyzeStream& stream, int slice, const ExportMapping& mapping,
                      std::vector<std::uint16_t>& row);
    void LoadPair(const std::string& base);

    AnalyzeHeader m_Header;
    bool m_bBigEndian;  ///< the data file's samples, or those to be written, are big-endian
    // 16-bit samples are written as trunc(sample * scale) - offset: see GetMapping.
    bool m_bHalve;  ///< a scale of 0.5 instead of 1
    int m_nOffset;
};
