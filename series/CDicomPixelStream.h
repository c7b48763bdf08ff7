// The pixels of one data set.
#pragma once

#include "../base/Export.h"

#include <cstddef>

class DICOMDataObject;
class VR;

namespace korvane_detail {
struct PixelRange;
struct WordForm;
}  // namespace korvane_detail

/// Reads the native (uncompressed) Pixel Data (7FE0,0010) of one data set (PS3.3 C.7.6.3, PS3.5 8.1).
///
/// Four value domains are used throughout:
///
///   stored word     the bytes as they lie in Pixel Data: 1, 2 or 4, little endian
///   pixel value     ((word >> shift) & pixel mask) XOR sign mask: unsigned; for signed data offset binary
///   raw value       pixel value + sign offset: the stored value with its sign
///   modality value  raw * slope + intercept, truncated toward zero
///
/// Example: 16 bits allocated, 12 stored, high bit 11, signed: shift 0, pixel mask 0x0FFF, sign mask 0x0800, sign
/// offset
/// -2048. The word 0x0FFF is the pixel value 0x07FF and the raw value -1.
///
/// Four-byte words are the exception: their raw value is word + sign offset, without shift or mask. Images with more
/// than one sample per pixel are taken as 8-bit samples: their word is one byte, except that of two or four samples.
///
/// RANGE AND WINDOW are in modality units for monochrome images (PS3.3 C.11.1, C.11.2); where there is no rescale slope
/// and intercept (0028,1053), (0028,1052), both are needed, they are raw values. Colour images have the range that
/// their bits allow.
///
/// FAILURE is a false of SetDDO, nothing is thrown. Compressed pixels are not recognised as such: they are read as if
/// they were native, so decode first.
///
/// The stream borrows the pixels: the data set must outlive it, and copies share them. Nothing is ever read beyond the
/// end of Pixel Data: there the stored word is 0. All arithmetic is that of 32 bits; a shift outside 0 .. 31 gives 0.
class KORVANE_API CDicomPixelStream {
public:
    /// (0028,0004), PS3.3 C.7.6.3.1.2. A value that is the beginning of a keyword counts as that keyword.
    enum PhotometricInterpretation {
        PI_MONO8 = 0,    ///< MONOCHROME1 or 2, words of 1 byte
        PI_MONO16 = 1,   ///< monochrome, any other size; also what none of the four keywords names
        PI_MONO32 = 2,   ///< monochrome, words of 4 bytes
        PI_PALETTE = 3,  ///< PALETTE COLOR; the palette itself is not applied
        PI_RGB = 4
    };

    CDicomPixelStream();
    explicit CDicomPixelStream(DICOMDataObject* ddo);
    CDicomPixelStream(const CDicomPixelStream&) = default;
    CDicomPixelStream& operator=(const CDicomPixelStream&) = default;
    virtual ~CDicomPixelStream();

    /// Opens the pixels of `ddo`, scans them for their range, and derives window and spacing. False when a required
    /// element is missing (Rows, Columns, Bits Stored, Bits Allocated, High Bit, Photometric Interpretation, Samples
    /// per Pixel, Pixel Data); the fields set so far then stay, and there are no pixels.
    bool SetDDO(DICOMDataObject* ddo);
    bool IsValid() const { return m_bValid; }  ///< whether the last SetDDO succeeded

    /// The sequential cursor. Reset takes it to the first word and forgets the range; SetImg takes it to a sample plane
    /// of a frame (a negative frame does not move it); GetNextPixel returns the raw value of the next word and widens
    /// the range by it; ReadPixels(out, n) does what n calls do and stores words of GetWordSize() bytes, which hold the
    /// low bits of the raw values.
    void Reset();
    void SetImg(int frame, int sample);
    int GetImg() const { return m_nImg; }
    long GetNextPixel();
    void ReadPixels(void* out, std::size_t count);
    int GetWordSize() const;  ///< 1, 2 or 4

    /// Random access; row, column, frame and sample count from 0. The address of a pixel is null where it would not lie
    /// inside Pixel Data. Raw and modality values are 0 outside rows and columns. GetPixelValue is -1 outside any of
    /// the four ranges, else what the selected interpret function makes of the word: -1 where an overlay bit is set and
    /// overlays are on, inverted for MONOCHROME1.
    void* GetPixelPt(int row, int col, int frame, int sample) const;
    long GetRawValue(int row, int col, int frame, int sample) const;
    long GetModalityValue(int row, int col, int frame, int sample) const;
    long GetPixelValue(int row, int col, int frame, int sample) const;
    long InterpretValue(long word) const;
    long InterpretRawValue(void* p) const;  ///< the raw value of the word at `p`, which may be null: the word 0

    /// Between the domains. ModalityToRaw is v / slope - intercept, which inverts RawToModality for an intercept of 0
    /// only. It stays so, for thresholds that a host has converted by it and stored.
    long RawToModality(long v) const;
    long ModalityToRaw(long v) const;
    long PixelToRaw(long v) const;
    long RawToPixel(long v) const;
    /// What the largest value that the stored bits can hold is in modality units.
    long GetMaxPossibleValue() const;

    /// Overlay planes in the bits above the stored ones; off after SetDDO.
    void SetOverlay(bool on);
    bool GetOverlay() const { return m_bOverlay; }

    /// Smallest and largest value of all Pixel Data, of every frame; the search starts at 65535 and -65535, so of
    /// four-byte values that are all above or all below, one end is that. After SetDDO the range is in modality units;
    /// what the cursor reads afterwards widens it by raw values.
    int GetMin() const { return m_nMin; }
    int GetMax() const { return m_nMax; }
    /// The first window of the data set (0028,1050), (0028,1051), as its lowest and highest value, both truncated to
    /// integers: a centre of 40 and a width of 400 give -159 and 240, but 0 and 240 where stored values are unsigned.
    /// Without a window it is the range.
    int GetVOIWinMin() const { return m_nWinMin; }
    int GetVOIWinMax() const { return m_nWinMax; }

    /// How words become values, as in the table above. The pixel mask is not shifted; the overlay mask has the bits of
    /// a word that are above Bits Stored; the XOR mask is the sign bit of signed words; Invert is true for MONOCHROME1.
    int GetPixelMask() const { return m_nPixelMask; }
    int GetOverlayMask() const { return m_nOverlayMask; }
    int GetXORMask() const { return m_nXORMask; }
    int GetPixelShift() const { return m_nPixelShift; }
    bool GetInvert() const { return m_bInvert; }
    /// For more than one sample per pixel: the number of samples.
    int GetBytesPerPixel() const { return m_nBytesPerPixel; }
    bool IsSigned() const { return m_bSigned; }  ///< Pixel Representation (0028,0103)
    int GetNRows() const { return m_nRows; }
    int GetNCols() const { return m_nCols; }
    int GetBitsAllocated() const { return m_nBitsAllocated; }
    int GetBitsStored() const { return m_nBitsStored; }
    int GetHighBit() const { return m_nHighBit; }
    int GetNumberOfFrames() const { return m_nFrames; }  ///< as claimed; 1 without (0028,0008)
    int GetNSamples() const { return m_nSamples; }       ///< 3 for palette colour
    /// Rescale intercept and slope; 0 and 1 unless both are there.
    float GetModalitLUTIntercept() const { return m_fIntercept; }
    float GetModalitLUTRescale() const { return m_fRescale; }
    PhotometricInterpretation GetPhotometricInterpretation() const { return m_Photometric; }

    /// Byte steps to the next column, row, frame and sample (low 32 bits).
    void GetIncrements(int* const inc) const;

    /// Millimetres; x is the first value of the spacing element, y the second. The first that is there of Imager Pixel
    /// Spacing (0018,1164), (3006,1164), Image Plane Pixel Spacing (3002,0011), Pixel Spacing (0028,0030) and Nominal
    /// Scanned Pixel Spacing (0018,2010); 1.0 without any. The first one is the distance at the detector, not in the
    /// patient.
    double GetXSpacing() const { return m_dXSpacing; }
    double GetYSpacing() const { return m_dYSpacing; }

private:
    friend class CDicomVolume;  // opens without the scan, which it does together with its own reading

    using Interpreter = long (CDicomPixelStream::*)(long word) const;

    static korvane_detail::PixelRange ScanStart();
    bool ReadLayout(DICOMDataObject* ddo);
    bool ReadMatrix(DICOMDataObject* ddo);
    bool ReadBits(DICOMDataObject* ddo);
    bool ReadPhotometric(DICOMDataObject* ddo);
    bool ReadSamples(DICOMDataObject* ddo);
    void DeriveMasks();
    void SetDefaultRange();
    void ReadMapping(DICOMDataObject* ddo, const korvane_detail::PixelRange& raw);
    bool ReadWindow(DICOMDataObject* ddo);
    void ReadSpacing(DICOMDataObject* ddo);

    bool IsMonochrome() const;
    bool IsColour() const;
    unsigned long long FrameBytes() const;
    std::size_t OffsetOf(int row, int col, int frame, int sample) const;
    std::size_t BytesLeft() const;
    korvane_detail::WordForm Form() const;
    korvane_detail::PixelRange ScanRest() const;
    korvane_detail::PixelRange ReadWords(void* out, std::size_t count);
    void Widen(const korvane_detail::PixelRange& raw);
    unsigned WordAt(const void* p) const;
    long RawAt(const void* p) const;

    long Interpret8(long word) const;
    long Interpret8Inv(long word) const;
    long Interpret16(long word) const;
    long Interpret16Inv(long word) const;
    long Interpret32Inv(long word) const;
    template <Interpreter kForm>
    long InterpretOverlay(long word) const;

    bool m_bValid = false;
    bool m_bInvert = false;
    Interpreter m_pInterpret = &CDicomPixelStream::Interpret16;
    int m_nMaxPossible = 0;
    int m_nBitsAllocated = 0;
    int m_nBitsStored = 0;
    int m_nFrames = 1;
    int m_nHighBit = 0;
    int m_nSignOffset = 0;
    int m_nXORMask = 0;
    int m_nOverlayMask = 0;
    bool m_bOverlay = false;
    int m_nPixelShift = 0;
    unsigned short m_nSamples = 0;
    bool m_bSigned = false;
    int m_nBytesPerPixel = 0;
    unsigned char* m_pData = nullptr;
    unsigned char* m_pCursor = nullptr;
    int m_nPixelMask = 0;
    int m_nMin = 0;
    int m_nMax = 0;
    int m_nRows = 0;
    int m_nCols = 0;
    PhotometricInterpretation m_Photometric = PI_MONO16;
    int m_Inc[4] = {0, 0, 0, 0};
    int m_nWinMin = 0;
    int m_nWinMax = 0;
    double m_dXSpacing = 1.0;
    double m_dYSpacing = 1.0;
    float m_fIntercept = 0.0F;
    float m_fRescale = 1.0F;
    int m_nImg = 0;
    std::size_t m_nDataLength = 0;        // bytes behind m_pData
    bool m_bPlanar = false;               // sample planes one after another
    unsigned short m_nSamplesStored = 0;  // Samples per Pixel as read
};
