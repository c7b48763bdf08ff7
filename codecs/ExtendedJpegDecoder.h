// Grey JPEG of the sequential DCT processes with Huffman codes (ITU-T T.81 annex F): decoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegBitReader.h"
#include "JpegSegments.h"

#include <array>
#include <vector>

/// Takes one component of 8 bits (processes 1 and 2) or of 12 (process 4), and restart intervals. Colour, progressive and
/// arithmetic streams and heights that come behind the pixels (DNL) are failures. The transform is computed in double
/// precision, and its results are rounded. Samples fill the low bits of the frame's.
class ExtendedJpegDecoder {
public:
    /// Keeps views of all three.
    ExtendedJpegDecoder(const DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels);
    /// Throws CodecFailure unless every pixel was in the stream.
    void Run();
    unsigned Precision() const { return m_precision; }

    /// The bits of a sample that a stream's frame header names; 0 where there is no header that tells.
    static unsigned PrecisionOf(std::span<const std::uint8_t> stream);

private:
    using Bytes = std::span<const std::uint8_t>;
    using Block = std::array<double, 64>;
    /// By the next 16 bits: the length of the code that they begin with, 0 for none, and its symbol in the low byte.
    using CodeTable = std::vector<std::uint16_t>;

    void ReadFrame(Bytes segment);
    void ReadCodes(Bytes segment);
    void ReadSteps(Bytes segment);
    void BeginScan(Bytes segment);
    void DecodeScan();
    void Restart(unsigned number);
    unsigned TakeSymbol(const CodeTable& table);
    int TakeValue(unsigned bits);
    void DecodeBlock(Block& block);
    void StoreBlock(const Block& block, std::size_t column);
    static CodeTable MakeCodes(Bytes counts, Bytes symbols);

    const DcmFrameFormat& m_format;
    FrameLayout m_layout;
    std::uint8_t* m_pixels;
    JpegSegments m_stream;
    unsigned m_precision = 0;  // 0: no frame header yet
    unsigned m_stepTable = 0;
    std::size_t m_restartInterval = 0;                // in blocks, 0 for none
    std::array<std::array<double, 64>, 4> m_steps{};  // of quantisation, in zigzag order; 0 where not defined
    std::array<std::array<CodeTable, 4>, 2> m_codes;  // by class (0 DC, 1 AC) and number
    const CodeTable* m_pDc = nullptr;
    const CodeTable* m_pAc = nullptr;
    JpegBitReader m_bits;
    std::int64_t m_dc = 0;               // of the block before
    std::vector<std::uint16_t> m_lines;  // eight, of whole blocks
};
