// BOB volumes.
#pragma once

#include "../series/CModalityLUT.h"
#include "CVolumeExport.h"
#include "ExportMapping.h"

#include <string>
#include <vector>

/// Writes a volume as a brick of bytes: "name.header", a text about volume and patient, "name.ImageInfo", a text block
/// for each slice, and "name.img", the voxels as 16-bit numbers, high byte first, first slice first. Lengths in the two
/// texts are centimetres.
///
/// Voxels are written in modality units (CModalityLUT of the first data set), plus 1024 for CT, halved for unsigned XA:
///   PT_SHORT   negative results become 0
///   PT_USHORT  results are clamped to 0 .. 32767
///   PT_BYTE    as stored, without the LUT
///   others     the plane is taken for unsigned 16-bit numbers, which gives rubbish: do not export them
///
/// No file is overwritten: each of the three takes the first of "name.header", "name.01.header" ... that does not exist
/// on the LOCAL disk, also where the writer sends the file elsewhere. The three of one save may get different numbers.
///
/// A copy is as shallow as one of CVolumeExport.
class KORVANE_API CCBobVolume : public CVolumeExport {
public:
    CCBobVolume();
    CCBobVolume(const CCBobVolume&) = default;
    CCBobVolume& operator=(const CCBobVolume&) = default;

    /// Takes the volume of `series`; from its first data set the LUT, Modality (0008,0060) and the texts of the header;
    /// from each of its data sets Slice Thickness (0018,0050), or the volume's fourth spacing value where it is
    /// missing. Series Date (0008,0021) counts with 8 (yyyymmdd) or 10 (yyyy.mm.dd) characters, otherwise the date of
    /// the series before stays; all else is forgotten. Patient Position (0018,5100) becomes "HFS" unless it is one of
    /// the eight positions lying on back, front or side.
    // NOLINTNEXTLINE(misc-unconventional-assign-operator): callers chain it as the base declares it
    CVolumeExport& operator=(CDicomVolume& series) override;

    /// Writes the three files into `dir`, a slash in between, the callback being called before each slice. False,
    /// without an error text, when a file cannot be opened or there is no volume. True as well when the callback
    /// stopped the work, which leaves a short data file, and when the disk was full: writing is not checked.
    bool Save(const char* dir, const char* name) override;

    /// What `Save` does to the voxels of the volume held. Without a volume, and for a pixel type that has no form,
    /// `bits` is 0.
    ExportMapping GetMapping() const;

private:
    void TakeTexts(DICOMDataObject* first);
    void TakeDate(const std::string& date);
    void TakeThickness(CDicomVolume& series);
    bool RunsDown();
    bool OpenFile(const std::string& dir, const std::string& name, const char* extension);
    void WriteHeader();
    void WriteSliceInfo();
    void WriteVoxels();

    static constexpr int kTextSize = 256;  ///< a line stays below what one CFTPSend::Print sends

    char m_DimUnits[4];
    char m_DbName[kTextSize];
    char m_MedicalRecordNum[kTextSize];
    char m_Originator[kTextSize];
    char m_Date[11];  ///< mm/dd/yyyy
    char m_ScannerId[kTextSize];
    char m_PatientPosition[kTextSize];
    char m_Comment[kTextSize];
    int m_nOrientation;
    std::vector<float> m_Thickness;  ///< millimetres, one a slice
    CModalityLUT m_LUT;
    char m_Modality[kTextSize];
};
