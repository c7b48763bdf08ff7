#include "LosslessJpegEncoder.h"

#include <algorithm>
#include <bit>

namespace {

// The category of a difference: the number of bits written for it. Category 16 is 32768 alone (T.81 H.1.2.2).
unsigned Category(std::uint16_t difference) {
    const auto value = static_cast<std::int16_t>(difference);
    return static_cast<unsigned>(std::bit_width(static_cast<unsigned>(value < 0 ? -value : value)));
}

// Collects bits into bytes, most significant bit first, and stuffs a zero byte behind each 0xFF (T.81 F.1.2.3).
class BitWriter {
public:
    // `length` at most 32.
    void Put(std::uint32_t bits, unsigned length) {
        m_bits = m_bits << length | bits;
        m_count += length;
        while (m_count >= 8) {
            m_count -= 8;
            const auto byte = static_cast<std::uint8_t>(m_bits >> m_count);
            *m_at++ = byte;
            if (byte == 0xFF) *m_at++ = 0;
        }
    }
    // Writes out what has been collected and makes room for a line of `samples`.
    void StartLine(std::size_t samples, const FrameWriter& writer) {
        Flush(writer);
        m_buffer.resize(std::max(m_buffer.size(), kMostBytes * (samples + 2)));
        m_at = m_buffer.data();
    }
    void Flush(const FrameWriter& writer) {
        writer.Write({m_buffer.data(), static_cast<std::size_t>(m_at - m_buffer.data())});
        m_at = m_buffer.data();
    }
    void PadWithOnes() {
        if (m_count != 0) Put((1u << (8 - m_count)) - 1, 8 - m_count);
    }

private:
    static constexpr std::size_t kMostBytes =
        8;  // for a sample: code and difference take at most 32 bits, and each byte may be stuffed
    std::vector<std::uint8_t> m_buffer;
    std::uint8_t* m_at = m_buffer.data();
    std::uint64_t m_bits = 0;
    unsigned m_count = 0;
};

}  // namespace

LosslessJpegEncoder::LosslessJpegEncoder(const DcmFrameFormat& format, std::span<const std::uint8_t> pixels)
    : m_format(format), m_layout(format), m_pixels(pixels), m_line((m_layout.Columns() + 1) * m_layout.Samples()),
      m_differences(m_layout.Columns() * m_layout.Samples()) {
    if (format.bitsAllocated > 16) Fail("lossless JPEG has no room for ", format.bitsAllocated, " bits allocated");
    m_precision = Precision();
}

unsigned LosslessJpegEncoder::Precision() const {
    std::uint16_t used = 0;
    for (std::size_t i = 0; i < m_pixels.size(); ++i) {
        const bool isHigh = m_layout.SampleBytes() == 2 && i % 2 != 0;
        used = static_cast<std::uint16_t>(used | m_pixels[i] << (isHigh ? 8 : 0));
    }
    const unsigned stored = std::max(2u, m_format.bitsStored);
    const bool isPlain = m_format.pixelRepresentation == 0 && m_format.highBit + 1 == m_format.bitsStored;
    return isPlain && used >> stored == 0 ? stored : m_format.bitsAllocated;
}

// Predictor 1: each sample from its left neighbour, the first of a line from the one above, and the very first of the
// frame from half of the range (T.81 H.1.2.1).
void LosslessJpegEncoder::NextDifferences(std::size_t row) {
    const std::size_t count = m_layout.Samples();
    for (std::size_t c = 0; c < count; ++c) {
        m_line[c] = row == 0 ? static_cast<std::uint16_t>(1u << (m_precision - 1)) : m_line[count + c];
    }
    m_layout.LoadLine(m_pixels.data(), row, 0, count, m_line.data() + count);
    for (std::size_t i = 0; i < m_differences.size(); ++i) {
        m_differences[i] = static_cast<std::uint16_t>(m_line[i + count] - m_line[i]);
    }
}

JpegHuffmanTable LosslessJpegEncoder::BestTable() {
    std::array<std::uint64_t, JpegHuffmanTable::kCategories> frequencies{};
    for (std::size_t row = 0; row < m_layout.Rows(); ++row) {
        NextDifferences(row);
        for (const std::uint16_t difference : m_differences) ++frequencies[Category(difference)];
    }
    return JpegHuffmanTable::ForFrequencies(frequencies);
}

void LosslessJpegEncoder::Run(const FrameWriter& writer) {
    const JpegHuffmanTable table = BestTable();
    WriteHeaders(table, writer);
    WriteScan(table, writer);
    writer.Write(std::array<std::uint8_t, 2>{0xFF, 0xD9});
}

void LosslessJpegEncoder::WriteHeaders(const JpegHuffmanTable& table, const FrameWriter& writer) const {
    std::vector<std::uint8_t> out;
    const auto add = [&](std::initializer_list<std::size_t> bytes) {
        for (const std::size_t byte : bytes) out.push_back(static_cast<std::uint8_t>(byte));
    };
    const std::size_t count = m_layout.Samples(), rows = m_layout.Rows(), columns = m_layout.Columns();
    add({0xFF, 0xD8, 0xFF, 0xC3, 0, 8 + 3 * count, m_precision, rows >> 8, rows, columns >> 8, columns, count});
    for (std::size_t c = 1; c <= count; ++c) add({c, 0x11, 0});
    add({0xFF, 0xC4, 0, 19 + table.Values().size(), 0});
    out.insert(out.end(), table.Counts().begin(), table.Counts().end());
    out.insert(out.end(), table.Values().begin(), table.Values().end());
    add({0xFF, 0xDA, 0, 6 + 2 * count, count});
    for (std::size_t c = 1; c <= count; ++c) add({c, 0});
    add({1, 0, 0});
    writer.Write(out);
}

void LosslessJpegEncoder::WriteScan(const JpegHuffmanTable& table, const FrameWriter& writer) {
    const auto codes = table.Codes();
    BitWriter out;
    for (std::size_t row = 0; row < m_layout.Rows(); ++row) {
        out.StartLine(m_differences.size(), writer);
        NextDifferences(row);
        for (const std::uint16_t difference : m_differences) {
            const unsigned category = Category(difference);
            const unsigned bits = category == 16 ? 0 : category;
            // Negative ones are written less 1, so that their first bit is 0.
            const unsigned value = (difference - (difference >> 15)) & ((1u << bits) - 1);
            out.Put(static_cast<std::uint32_t>(codes[category].bits) << bits | value, codes[category].length + bits);
        }
    }
    out.PadWithOnes();
    out.Flush(writer);
}
