#pragma once

#include <cstddef>

#include "../platform/Export.h"

class DICOMDataObject;

/// Reads the native (uncompressed) Pixel Data (7FE0,0010) of one data set (PS3.3 C.7.6.3, PS3.5 8.1).
///
/// Four value domains are used throughout:
///
///   stored word     the bytes as they lie in Pixel Data: 1, 2 or 4, little endian
///   pixel value     ((word >> shift) & pixel mask) XOR sign mask: unsigned; for signed data offset binary
///   raw value       pixel value + sign offset: the stored value with its sign
///   modality value  raw * slope + intercept, truncated toward zero
///
/// Example: 16 bits allocated, 12 stored, high bit 11, signed: shift 0, pixel mask 0x0FFF, sign mask 0x0800, sign offset
/// -2048. The word 0x0FFF is the pixel value 0x07FF and the raw value -1.
///
/// Four-byte words are the exception: their raw value is word + sign offset, without shift or mask. Images with more
/// than one sample per pixel are taken as 8-bit samples: their word is one byte, except that of two or four samples.
///
/// The stream borrows the pixels: the data set must outlive it, and copies share them. Nothing is ever read beyond the
/// end of Pixel Data: there the stored word is 0. All arithmetic is that of 32 bits; a shift outside 0 .. 31 gives 0.
class KORVANE_API CDicomPixelStream {
public:
    enum PhotometricInterpretation {
        PI_MONO8 = 0,   // MONOCHROME1 or 2, words of 1 byte
        PI_MONO16 = 1,  // monochrome, any other size; also what none of the four keywords names
        PI_MONO32 = 2,  // monochrome, words of 4 bytes
        PI_PALETTE = 3,
        PI_RGB = 4
    };

    CDicomPixelStream();
    explicit CDicomPixelStream(DICOMDataObject* ddo);
    CDicomPixelStream(const CDicomPixelStream&) = default;
    CDicomPixelStream& operator=(const CDicomPixelStream&) = default;
    virtual ~CDicomPixelStream();

    /// Opens the pixels of `ddo`, scans them for their range, and derives window and spacing. False when a required
    /// element is missing (Rows, Columns, Bits Stored, Bits Allocated, High Bit, Photometric Interpretation, Samples per
    /// Pixel, Pixel Data); the fields set so far then stay, and there are no pixels.
    bool SetDDO(DICOMDataObject* ddo);
    bool IsValid() const;  ///< whether the last SetDDO succeeded

    /// The sequential cursor. Reset takes it to the first word and forgets the range; SetImg takes it to a sample plane
    /// of a frame (a negative frame does not move it); GetNextPixel returns the raw value of the next word and widens
    /// the range by it; ReadPixels(out, n) does what n calls do and stores words of GetWordSize() bytes, which hold the
    /// low bits of the raw values.
    void Reset();
    void SetImg(int frame, int sample);
    int GetImg() const;
    long GetNextPixel();
    void ReadPixels(void* out, std::size_t count);
    int GetWordSize() const;  ///< 1, 2 or 4

    /// Random access. The address of a pixel is null where it would not lie inside Pixel Data. Raw and modality values
    /// are 0 outside rows and columns. GetPixelValue is -1 outside any of the four ranges, else what the selected
    /// interpret function makes of the word: -1 where an overlay bit is set and overlays are on, inverted for
    /// MONOCHROME1.
    void* GetPixelPt(int row, int col, int frame, int sample) const;
    long GetRawValue(int row, int col, int frame, int sample) const;
    long GetModalityValue(int row, int col, int frame, int sample) const;
    long GetPixelValue(int row, int col, int frame, int sample) const;
    long InterpretValue(long word) const;
    long InterpretRawValue(void* p) const;  ///< the raw value of the word at `p`, which may be null: the word 0

    /// Between the domains. ModalityToRaw is v / slope - intercept, which inverts RawToModality for an intercept of 0
    /// only: kept, callers rely on it.
    long RawToModality(long v) const;
    long ModalityToRaw(long v) const;
    long PixelToRaw(long v) const;
    long RawToPixel(long v) const;
    long GetMaxPossibleValue() const;  ///< in modality units

    /// Overlay planes in the bits above the stored ones; off after SetDDO.
    void SetOverlay(bool on);
    bool GetOverlay() const;

    /// After SetDDO the range is in modality units; what the cursor reads afterwards widens it by raw values.
    int GetMin() const;
    int GetMax() const;
    int GetVOIWinMin() const;
    int GetVOIWinMax() const;

    int GetPixelMask() const;
    int GetOverlayMask() const;
    int GetXORMask() const;
    int GetPixelShift() const;
    bool GetInvert() const;
    int GetBytesPerPixel() const;  ///< for more than one sample per pixel: the number of samples
    bool IsSigned() const;
    int GetNRows() const;
    int GetNCols() const;
    int GetBitsAllocated() const;
    int GetBitsStored() const;
    int GetHighBit() const;
    int GetNumberOfFrames() const;
    int GetNSamples() const;  ///< 3 for palette colour
    float GetModalitLUTIntercept() const;
    float GetModalitLUTRescale() const;
    PhotometricInterpretation GetPhotometricInterpretation() const;

    /// Byte steps to the next column, row, frame and sample (low 32 bits).
    void GetIncrements(int* const inc) const;

    /// Millimetres; x is the first value of the spacing element, y the second. 1.0 without such an element.
    double GetXSpacing() const;
    double GetYSpacing() const;

private:
    friend class CDicomVolume;  ///< opens without the scan, which it does together with its own reading

    using Interpreter = long (CDicomPixelStream::*)(long word) const;
    struct Range {
        int min;
        int max;
    };

    bool ReadLayout(DICOMDataObject* ddo);
    bool ReadBits(DICOMDataObject* ddo);
    bool ReadPhotometric(DICOMDataObject* ddo);
    bool ReadSamples(DICOMDataObject* ddo);
    bool ReadPixelData(DICOMDataObject* ddo);
    void DeriveMasks();
    void SetDefaultRange();
    void ApplyRange(DICOMDataObject* ddo, const Range& raw);
    void ReadModality(DICOMDataObject* ddo);
    bool ReadWindow(DICOMDataObject* ddo);
    void ReadSpacing(DICOMDataObject* ddo);

    bool IsMonochrome() const;
    bool IsColour() const;
    unsigned long long FrameBytes() const;
    std::size_t OffsetOf(long long row, long long col, long long frame, long long sample) const;
    Range ScanFrom(std::size_t offset) const;
    Range ReadWords(void* out, std::size_t count);
    long WordAt(const unsigned char* p) const;
    long RawOf(long word) const;

    void SelectInterpreter();
    long Interpret8(long word) const;
    long Interpret8Inv(long word) const;
    long Interpret16(long word) const;
    long Interpret16Inv(long word) const;
    long Interpret32Inv(long word) const;
    long Interpret8Overlay(long word) const;
    long Interpret8InvOverlay(long word) const;
    long Interpret16Overlay(long word) const;
    long Interpret16InvOverlay(long word) const;
    long Interpret32InvOverlay(long word) const;

    bool m_bValid;
    bool m_bInvert;
    Interpreter m_pInterpret;
    int m_nMaxPossible;
    int m_nBitsAllocated;
    int m_nBitsStored;
    int m_nFrames;
    int m_nHighBit;
    int m_nSignOffset;
    int m_nXORMask;
    int m_nOverlayMask;
    bool m_bOverlay;
    int m_nPixelShift;
    unsigned short m_nSamples;
    bool m_bSigned;
    int m_nBytesPerPixel;
    unsigned char* m_pData;
    unsigned char* m_pCursor;
    int m_nPixelMask;
    int m_nMin;
    int m_nMax;
    int m_nRows;
    int m_nCols;
    PhotometricInterpretation m_Photometric;
    int m_Inc[4];
    int m_nWinMin;
    int m_nWinMax;
    double m_dXSpacing;
    double m_dYSpacing;
    float m_fIntercept;
    float m_fRescale;
    int m_nImg;
    std::size_t m_nDataLength;  ///< bytes behind m_pData
    bool m_bPlanar;             ///< sample planes one after another
    int m_nStoredSamples;       ///< Samples per Pixel as read
};
