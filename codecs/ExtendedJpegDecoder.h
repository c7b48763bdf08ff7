// Grey JPEG of the sequential DCT processes with Huffman codes (ITU-T T.81 annex F): decoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegBitReader.h"
#include "JpegSegments.h"

#include <array>
#include <vector>

/// Decodes one component of 8 bits (processes 1 and 2) or of 12 bits (process 4), with or without restart intervals.
/// Colour, progressive and arithmetic-coded streams fail, and so do streams that state their height only behind the
/// pixels (DNL marker). The inverse transform is computed in double precision and its results are rounded. Decoded
/// values are stored in the low bits of the frame's samples; FinishSamples does what remains for signed pixels and high
/// bits.
class ExtendedJpegDecoder {
public:
    /// The object refers to all three arguments, which must outlive it.
    ExtendedJpegDecoder(const DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels);
    /// Decodes the frame; call it once. Throws CodecFailure unless the stream holds every pixel.
    void Run();
    /// Bits of a sample in the stream; valid after Run.
    unsigned Precision() const { return m_precision; }

    /// The bits of a sample that the stream's frame header names; 0 where no readable frame header is found.
    static unsigned PrecisionOf(std::span<const std::uint8_t> stream);

private:
    using Bytes = std::span<const std::uint8_t>;
    using Block = std::array<double, 64>;
    /// 65,536 entries, indexed by the next 16 bits of the stream. High byte: length of the Huffman code that these bits
    /// begin with, 0 where no code matches. Low byte: the code's symbol.
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
    unsigned m_precision = 0;  ///< 0: no frame header yet
    unsigned m_stepTable = 0;
    std::size_t m_restartInterval = 0;                ///< in blocks, 0 for none
    std::array<std::array<double, 64>, 4> m_steps{};  ///< quantisation steps by table, in zigzag order; 0: undefined
    std::array<std::array<CodeTable, 4>, 2> m_codes;  ///< by class (0 DC, 1 AC) and number
    const CodeTable* m_pDc = nullptr;
    const CodeTable* m_pAc = nullptr;
    JpegBitReader m_bits;
    std::int64_t m_dc = 0;               ///< DC value of the previous block
    std::vector<std::uint16_t> m_lines;  ///< eight lines, as wide as the row of blocks
};
