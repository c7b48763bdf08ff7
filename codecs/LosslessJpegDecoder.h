// Lossless JPEG, process 14 (ITU-T T.81 annex H): decoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegBitReader.h"
#include "JpegHuffmanTable.h"
#include "JpegSegments.h"

/// Takes samples of 2 to 16 bits, all predictors, point transforms, restart intervals, and up to 4 components, in one
/// scan together or each in its own. Heights that come behind the pixels (DNL) and components of different sizes are
/// failures. Samples fill the low bits of the frame's.
class LosslessJpegDecoder {
public:
    LosslessJpegDecoder(const DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels);
    /// Throws CodecFailure unless every pixel was in the stream.
    void Run();
    unsigned Precision() const { return m_precision; }

private:
    using Bytes = std::span<const std::uint8_t>;
    struct Component {
        std::uint8_t id = 0;
        std::uint8_t sampling = 0;  // horizontal and vertical factor in a byte, as the stream has them
        bool isDecoded = false;
    };
    struct Scan {
        std::size_t first = 0;  // component
        std::size_t count = 0;
        const JpegHuffmanTable* tables[4] = {};
        unsigned predictor = 1;
        unsigned shift = 0;  // the point transform
    };

    void ReadFrame(Bytes segment);
    void ReadTables(Bytes segment);
    Scan ReadScan(Bytes segment);
    void AddComponents(Bytes segment, Scan& scan);
    void DecodeScan(const Scan& scan);
    void Restart(unsigned number);
    void DecodeLine(const Scan& scan, bool isFirst, std::uint16_t* above, std::uint16_t* line);
    void StoreLine(const Scan& scan, std::size_t row, const std::uint16_t* line);

    const DcmFrameFormat& m_format;
    FrameLayout m_layout;
    std::uint8_t* m_pixels;
    JpegSegments m_stream;
    unsigned m_precision = 0;  // 0: no frame header yet
    std::size_t m_restartInterval = 0;
    std::vector<Component> m_components;
    JpegHuffmanTable m_tables[4];
    JpegBitReader m_bits;
    std::vector<std::uint16_t> m_values;  // of a line, as the frame has them
};
