#include "ExtendedJpegDecoder.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr std::size_t kSide = 8;

// Index within a block, row by row, of each coefficient in the zigzag order of the stream (T.81 figure A.6).
constexpr std::uint8_t kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                      12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                      35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                      58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// The cosine table of the inverse transform (T.81 A.3.3): entry 8x + u is C(u) / 2 * cos((2x + 1) u pi / 16).
std::array<double, 64> MakeWaves() {
    std::array<double, 64> waves{};
    for (std::size_t x = 0; x < kSide; ++x) {
        for (std::size_t u = 0; u < kSide; ++u) {
            const double angle = static_cast<double>((2 * x + 1) * u) * std::numbers::pi / 16;
            waves[kSide * x + u] = (u == 0 ? std::numbers::sqrt2 / 4 : 0.5) * std::cos(angle);
        }
    }
    return waves;
}

// Applies the inverse transform to each row of `block` and transposes it. Two calls make the whole two-dimensional
// transform, and leave the block as it was oriented.
void TransformRows(std::array<double, 64>& block) {
    static const std::array<double, 64> waves = MakeWaves();
    std::array<double, 64> turned;
    for (std::size_t row = 0; row < kSide; ++row) {
        for (std::size_t x = 0; x < kSide; ++x) {
            double sum = 0;
            for (std::size_t u = 0; u < kSide; ++u) sum += waves[kSide * x + u] * block[kSide * row + u];
            turned[kSide * x + row] = sum;
        }
    }
    block = turned;
}

}  // namespace

ExtendedJpegDecoder::ExtendedJpegDecoder(const DcmFrameFormat& format, Bytes stream, std::span<std::uint8_t> pixels)
    : m_format(format), m_layout(format), m_pixels(pixels.data()), m_stream(stream) {}

unsigned ExtendedJpegDecoder::PrecisionOf(Bytes stream) {
    try {
        JpegSegments segments(stream);
        segments.Begin();
        while (true) {
            const unsigned marker = segments.NextMarker();
            if (marker == kEoi || marker == kSos) return 0;
            const Bytes segment = segments.Segment();
            if (BeginsJpegFrame(marker)) return segment.empty() ? 0 : segment[0];
        }
    } catch (const CodecFailure&) {
        return 0;
    }
}

void ExtendedJpegDecoder::Run() {
    m_stream.Begin();
    while (true) {
        const unsigned marker = m_stream.NextMarker();
        if (marker == kEoi) Fail("the stream ends before its pixels");
        if (marker <= kRst7 && marker >= kRst0) continue;
        const Bytes segment = m_stream.Segment();
        if (marker == kSof0 || marker == kSof1) {
            ReadFrame(segment);
        } else if (BeginsJpegFrame(marker)) {
            Fail("the stream is JPEG process SOF", marker - kSof0, ", neither baseline nor extended");
        } else if (marker == kDht) {
            ReadCodes(segment);
        } else if (marker == kDqt) {
            ReadSteps(segment);
        } else if (marker == kDri) {
            if (segment.size() != 2) Fail("the stream's restart interval is not whole");
            m_restartInterval = LoadJpeg16(segment.data());
        } else if (marker == kSos) {
            BeginScan(segment);
            return DecodeScan();
        }
    }
}

void ExtendedJpegDecoder::ReadFrame(Bytes segment) {
    if (m_precision != 0) Fail("the stream has a second frame");
    if (segment.size() < 6 || segment.size() < 6 + 3u * segment[5]) Fail("the stream's frame header is not whole");
    if (LoadJpeg16(&segment[1]) == 0) Fail("the stream does not tell its height in front");
    CheckDimensions(m_format, LoadJpeg16(&segment[3]), LoadJpeg16(&segment[1]), segment[5]);
    if (segment[5] != 1) Fail("JPEG with samples of ", unsigned{segment[0]}, " bits: colour cannot be decoded");
    m_precision = segment[0];
    if ((m_precision != 8 && m_precision != 12) || m_precision > m_format.bitsAllocated ||
        m_format.bitsAllocated > 16) {
        Fail("samples of ", m_precision, " bits do not go with ", m_format.bitsAllocated, " bits allocated");
    }
    m_stepTable = segment[8];
    if (m_stepTable >= m_steps.size()) Fail("the stream's frame header names no quantisation table");
}

void ExtendedJpegDecoder::ReadCodes(Bytes segment) {
    while (!segment.empty()) {
        if (segment.size() < 17) Fail("a Huffman table is not whole");
        std::size_t size = 0;
        for (std::size_t i = 1; i <= 16; ++i) size += segment[i];
        const unsigned kind = segment[0] >> 4, number = segment[0] & 15u;
        if (segment.size() < 17 + size || kind > 1 || number > 3) Fail("a Huffman table is not whole");
        m_codes[kind][number] = MakeCodes(segment.subspan(1, 16), segment.subspan(17, size));
        segment = segment.subspan(17 + size);
    }
}

ExtendedJpegDecoder::CodeTable ExtendedJpegDecoder::MakeCodes(Bytes counts, Bytes symbols) {
    CodeTable table(65536);
    std::size_t next = 0;  // the first entry that no code has filled yet
    std::size_t index = 0;
    for (unsigned length = 1; length <= 16; ++length) {
        const std::size_t reach = std::size_t{65536} >> length;
        for (unsigned i = 0; i < counts[length - 1]; ++i, ++index, next += reach) {
            if (next + reach > table.size()) Fail("a Huffman table has more codes than there are");
            std::fill_n(&table[next], reach, static_cast<std::uint16_t>(length << 8 | symbols[index]));
        }
    }
    return table;
}

void ExtendedJpegDecoder::ReadSteps(Bytes segment) {
    while (!segment.empty()) {
        const unsigned bytes = segment[0] >> 4 == 0 ? 1 : 2, number = segment[0] & 15u;
        if (number > 3 || segment.size() < 1 + 64 * bytes) Fail("a quantisation table is not whole");
        for (std::size_t i = 0; i < 64; ++i) {
            m_steps[number][i] = bytes == 1 ? segment[1 + i] : LoadJpeg16(&segment[1 + 2 * i]);
        }
        segment = segment.subspan(1 + 64 * bytes);
    }
}

void ExtendedJpegDecoder::BeginScan(Bytes segment) {
    if (m_precision == 0) Fail("the stream has a scan before its frame header");
    if (segment.size() < 6 || segment[0] != 1) Fail("the stream's scan header is not whole");
    const unsigned dc = segment[2] >> 4, ac = segment[2] & 15u;
    if (dc > 3 || ac > 3 || m_codes[0][dc].empty() || m_codes[1][ac].empty()) Fail("a scan's Huffman table is missing");
    if (m_steps[m_stepTable][0] == 0) Fail("the stream's quantisation table is missing");
    m_pDc = &m_codes[0][dc];
    m_pAc = &m_codes[1][ac];
    m_bits.at = m_stream.at;
    m_bits.end = m_stream.end;
}

void ExtendedJpegDecoder::DecodeScan() {
    const std::size_t across = (m_layout.Columns() + kSide - 1) / kSide;
    m_lines.resize(kSide * kSide * across);
    std::size_t blocks = 0;
    Block block;
    for (std::size_t row = 0; row < m_layout.Rows(); row += kSide) {
        for (std::size_t i = 0; i < across; ++i, ++blocks) {
            if (m_restartInterval != 0 && blocks != 0 && blocks % m_restartInterval == 0) {
                Restart(static_cast<unsigned>((blocks / m_restartInterval - 1) % 8));
            }
            DecodeBlock(block);
            StoreBlock(block, i * kSide);
        }
        if (m_bits.IsOverrun()) Fail("the stream ends in row ", row + 1, " of ", m_layout.Rows());
        for (std::size_t y = 0; y < std::min(kSide, m_layout.Rows() - row); ++y) {
            m_layout.StoreLine(m_pixels, row + y, 0, 1, &m_lines[y * kSide * across]);
        }
    }
}

void ExtendedJpegDecoder::Restart(unsigned number) {
    if (m_bits.IsOverrun()) Fail("the stream ends within a restart interval");
    m_stream.at = m_bits.at;
    if (m_stream.NextMarker() != kRst0 + number) Fail("a restart marker is missing");
    m_bits = {};
    m_bits.at = m_stream.at;
    m_bits.end = m_stream.end;
    m_dc = 0;
}

unsigned ExtendedJpegDecoder::TakeSymbol(const CodeTable& table) {
    if (m_bits.count < 32) m_bits.Fill();
    const std::uint16_t entry = table[static_cast<std::size_t>(m_bits.bits >> 48)];
    if (entry == 0) Fail("the stream has a code that its Huffman table lacks");
    m_bits.bits <<= entry >> 8;
    m_bits.count -= entry >> 8;
    return entry & 0xFFu;
}

// Reads the signed number of `bits` bits, at most 15, that follows a code (T.81 F.2.2.1): a first bit of 0 marks a
// negative one. The bits are already in m_bits: TakeSymbol fills it far enough.
int ExtendedJpegDecoder::TakeValue(unsigned bits) {
    if (bits == 0) return 0;
    const bool isPositive = m_bits.bits >> 63 != 0;
    const int value = static_cast<int>(m_bits.bits >> (64 - bits));
    m_bits.bits <<= bits;
    m_bits.count -= bits;
    return isPositive ? value : value - (1 << bits) + 1;
}

// Reads the coefficients of a block (T.81 F.2.2), multiplies them by their quantisation steps, and transforms them to
// samples that lie around 0.
void ExtendedJpegDecoder::DecodeBlock(Block& block) {
    const std::array<double, 64>& steps = m_steps[m_stepTable];
    block.fill(0);
    const unsigned category = TakeSymbol(*m_pDc);
    if (category > 15) Fail("a Huffman table has a difference of ", category, " bits");
    m_dc += TakeValue(category);
    block[0] = static_cast<double>(m_dc) * steps[0];
    for (std::size_t k = 1; k < 64; ++k) {
        const unsigned symbol = TakeSymbol(*m_pAc);
        const unsigned zeros = symbol >> 4, bits = symbol & 15u;
        if (bits == 0 && zeros != 15) break;  // end of block: the coefficients that follow are 0
        k += zeros;
        if (k >= 64) Fail("a block has more than 64 coefficients");
        block[kZigzag[k]] = TakeValue(bits) * steps[k];
    }
    TransformRows(block);
    TransformRows(block);
}

void ExtendedJpegDecoder::StoreBlock(const Block& block, std::size_t column) {
    const std::size_t width = m_lines.size() / kSide;
    const double middle = 1 << (m_precision - 1), most = (1 << m_precision) - 1;
    for (std::size_t i = 0; i < 64; ++i) {
        const double sample = std::clamp(std::floor(block[i] + middle + 0.5), 0.0, most);
        m_lines[i / kSide * width + column + i % kSide] = static_cast<std::uint16_t>(sample);
    }
}
