// Lossless JPEG, process 14, selection value 1 (ITU-T T.81 annex H): encoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegHuffmanTable.h"

/// Encodes 1 to 4 components with 8 or 16 bits allocated into one scan. It goes through the pixels twice: the first
/// time to find the best Huffman table for the frame, the second time to write.
///
/// The stream's precision is Bits Stored where samples are unsigned, lie in the low bits and use no others. Otherwise
/// it is Bits Allocated, so that a decoder gives back every bit, unused ones and signs included.
class LosslessJpegEncoder {
public:
    /// The object refers to both arguments, which must outlive it. Throws CodecFailure for other formats.
    LosslessJpegEncoder(const DcmFrameFormat& format, std::span<const std::uint8_t> pixels);
    /// Writes the whole stream. Throws CodecFailure when the writer has no room.
    void Run(const FrameWriter& writer);

private:
    unsigned Precision() const;
    void NextDifferences(std::size_t row);
    JpegHuffmanTable BestTable();
    void WriteHeaders(const JpegHuffmanTable& table, const FrameWriter& writer) const;
    void WriteScan(const JpegHuffmanTable& table, const FrameWriter& writer);

    const DcmFrameFormat& m_format;
    FrameLayout m_layout;
    std::span<const std::uint8_t> m_pixels;
    unsigned m_precision;
    std::vector<std::uint16_t> m_line;         ///< with an extra pixel in front, as in LosslessJpegDecoder
    std::vector<std::uint16_t> m_differences;  ///< of the line, modulo 65536
};
