// Lossless JPEG, process 14 (ITU-T T.81 annex H): decoding of one frame.
#pragma once

#include "FrameLayout.h"
#include "JpegBitReader.h"
#include "JpegHuffmanTable.h"
#include "JpegSegments.h"

/// Decodes samples of 2 to 16 bits in 8 or 16 bits allocated, with any predictor, point transform and restart interval
/// (of whole rows), and up to 4 components, in one scan together or in several. Streams that state their height only
/// behind the pixels (DNL marker) and subsampled components fail. Decoded values are stored in the low bits of the
/// frame's samples; FinishSamples does what remains for signed pixels and high bits.
class LosslessJpegDecoder {
public:
    /// The object refers to all three arguments, which must outlive it.
    LosslessJpegDecoder(const DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels);
    /// Decodes the frame; call it once. Throws CodecFailure unless the stream holds every pixel.
    void Run();
    /// Bits of a sample in the stream; valid after Run.
    unsigned Precision() const { return m_precision; }

private:
    using Bytes = std::span<const std::uint8_t>;
    struct Component {
        std::uint8_t id = 0;
        std::uint8_t sampling = 0;  ///< horizontal and vertical factor in a byte, as the stream has them
        bool isDecoded = false;
    };
    struct Scan {
        std::size_t first = 0;  ///< index of its first component
        std::size_t count = 0;  ///< number of its components
        const JpegHuffmanTable* tables[4] = {};
        unsigned predictor = 1;
        unsigned shift = 0;  ///< the point transform
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
    unsigned m_precision = 0;           ///< 0: no frame header yet
    std::size_t m_restartInterval = 0;  ///< in pixels, 0 for none
    std::vector<Component> m_components;
    JpegHuffmanTable m_tables[4];
    JpegBitReader m_bits;
    std::vector<std::uint16_t> m_values;  ///< of a line whose point transform has been undone
};
