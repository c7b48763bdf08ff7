// Lossless JPEG, process 14, selection value 1 (ITU-T T.81 annex H): encoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegHuffmanTable.h"

/// Takes 1 to 4 components of 8 or 16 bits. Two passes: the Huffman table is the best one for the frame. The stream's
/// precision is the bits stored of unsigned samples of which no other bits are set, else the bits allocated: decoders
/// give back every bit then, the unused ones and signs too.
class LosslessJpegEncoder {
public:
    LosslessJpegEncoder(const DcmFrameFormat& format, std::span<const std::uint8_t> pixels);
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
    std::vector<std::uint16_t> m_line;         // a pixel in front, as for the decoder
    std::vector<std::uint16_t> m_differences;  // of the line, modulo 65536
};
