#include "LosslessJpegDecoder.h"

#include <algorithm>

namespace {

// The predicted sample (T.81 H.1.2.1) from its neighbours: `a` to the left, `b` above, `c` above to the left.
template <unsigned predictor>
int Predict(int a, int b, int c) {
    switch (predictor) {
    case 1: return a;
    case 2: return b;
    case 3: return c;
    case 4: return a + b - c;
    case 5: return a + ((b - c) >> 1);
    case 6: return b + ((a - c) >> 1);
    default: return (a + b) >> 1;
    }
}

// Removes the next difference from `in`, where `entry`, the result of the look-up, has only its code or not even that.
unsigned TakeLongDifference(JpegBitReader& in, const JpegHuffmanTable& table, JpegHuffmanTable::Entry entry) {
    if (entry.code == 0) entry = table.Search(in.bits);
    if (entry.code == 0) Fail("the stream has a code that its Huffman table lacks");
    const auto category = static_cast<unsigned>(entry.value);
    const std::uint64_t behindCode = in.bits << entry.code;
    const unsigned length = category == 16 ? 0 : category;
    in.bits = behindCode << length;
    in.count -= entry.code + length;
    if (category == 16) return 32768;
    return category == 0 ? 0 : static_cast<unsigned>(JpegHuffmanTable::Difference(behindCode, category));
}

// Removes the next difference from `in`.
inline unsigned TakeDifference(JpegBitReader& in, const JpegHuffmanTable& table) {
    if (in.count < 32) in.Fill();
    const JpegHuffmanTable::Entry entry = table.Lookup(in.bits);
    if (entry.total == 0) return TakeLongDifference(in, table, entry);
    in.bits <<= entry.total;
    in.count -= entry.total;
    return static_cast<unsigned>(entry.value);
}

// Decodes one line. `line` and `above` begin with an extra pixel, the left neighbour of the first. `fixedCount`, where
// not 0, is the number of components, known to the compiler.
template <unsigned predictor, std::size_t fixedCount>
void DecodeSamples(JpegBitReader& bits, const JpegHuffmanTable* const* tables, std::size_t componentCount,
                   std::size_t columns, const std::uint16_t* above, std::uint16_t* line) {
    const std::size_t count = fixedCount != 0 ? fixedCount : componentCount;
    JpegBitReader in = bits;
    for (std::size_t i = count; i < (columns + 1) * count; i += count) {
        for (std::size_t c = 0; c < count; ++c) {
            const std::size_t at = i + c;
            const int predicted = Predict<predictor>(line[at - count], above[at], above[at - count]);
            line[at] = static_cast<std::uint16_t>(static_cast<unsigned>(predicted) + TakeDifference(in, *tables[c]));
        }
    }
    bits = in;
}

template <std::size_t fixedCount, class... Arguments>
void DecodeByPredictor(unsigned predictor, Arguments&&... arguments) {
    switch (predictor) {
    case 1: return DecodeSamples<1, fixedCount>(arguments...);
    case 2: return DecodeSamples<2, fixedCount>(arguments...);
    case 3: return DecodeSamples<3, fixedCount>(arguments...);
    case 4: return DecodeSamples<4, fixedCount>(arguments...);
    case 5: return DecodeSamples<5, fixedCount>(arguments...);
    case 6: return DecodeSamples<6, fixedCount>(arguments...);
    default: return DecodeSamples<7, fixedCount>(arguments...);
    }
}

}  // namespace

LosslessJpegDecoder::LosslessJpegDecoder(const DcmFrameFormat& format, Bytes stream, std::span<std::uint8_t> pixels)
    : m_format(format), m_layout(format), m_pixels(pixels.data()), m_stream(stream) {}

void LosslessJpegDecoder::Run() {
    m_stream.Begin();
    std::size_t decoded = 0;
    while (m_precision == 0 || decoded < m_components.size()) {
        const unsigned marker = m_stream.NextMarker();
        if (marker == kEoi) Fail("the stream ends before the last component");
        if (marker <= kRst7 && marker >= kRst0) continue;
        const Bytes segment = m_stream.Segment();
        if (marker == kSof3) {
            ReadFrame(segment);
        } else if (marker == kDht) {
            ReadTables(segment);
        } else if (BeginsJpegFrame(marker)) {
            Fail("the stream is JPEG process SOF", marker - kSof0, ", not lossless (SOF3)");
        } else if (marker == kDri) {
            if (segment.size() != 2) Fail("the stream's restart interval is not whole");
            m_restartInterval = LoadJpeg16(segment.data());
        } else if (marker == kSos) {
            const Scan scan = ReadScan(segment);
            DecodeScan(scan);
            decoded += scan.count;
        }
    }
}

void LosslessJpegDecoder::ReadFrame(Bytes segment) {
    if (m_precision != 0) Fail("the stream has a second frame");
    if (segment.size() < 6 || segment.size() < 6 + 3u * segment[5]) Fail("the stream's frame header is not whole");
    const unsigned rows = LoadJpeg16(&segment[1]);
    if (rows == 0) Fail("the stream does not tell its height in front");
    CheckDimensions(m_format, LoadJpeg16(&segment[3]), rows, segment[5]);
    m_precision = segment[0];
    if (m_precision < 2 || m_precision > m_format.bitsAllocated || m_precision > 16 || m_format.bitsAllocated > 16) {
        Fail("samples of ", m_precision, " bits do not go with ", m_format.bitsAllocated, " bits allocated");
    }
    for (std::size_t c = 0; c < m_format.samplesPerPixel; ++c) {
        m_components.push_back({segment[6 + 3 * c], segment[7 + 3 * c]});
        if (m_components[c].sampling != m_components[0].sampling) Fail("the components have different sizes");
    }
}

void LosslessJpegDecoder::ReadTables(Bytes segment) {
    while (!segment.empty()) {
        if (segment.size() < 17) Fail("a Huffman table is not whole");
        std::size_t size = 0;
        for (std::size_t i = 1; i <= 16; ++i) size += segment[i];
        const unsigned target = segment[0];
        if (segment.size() < 17 + size) Fail("a Huffman table is not whole");
        // Tables of class 1 (numbers 16 and up) are for the coefficients of other processes, and are skipped.
        if (target < 4) m_tables[target] = JpegHuffmanTable(segment.subspan<1, 16>(), segment.subspan(17, size));
        segment = segment.subspan(17 + size);
    }
}

LosslessJpegDecoder::Scan LosslessJpegDecoder::ReadScan(Bytes segment) {
    if (m_precision == 0) Fail("the stream has a scan before its frame header");
    Scan scan;
    scan.count = segment.empty() ? 0 : segment[0];
    if (scan.count < 1 || scan.count > m_components.size() || segment.size() < 4 + 2 * scan.count) {
        Fail("the stream's scan header is not whole");
    }
    AddComponents(segment, scan);
    if (scan.count > 1 && m_components[0].sampling != 0x11) Fail("the components are sampled in an unknown way");
    const std::uint8_t* const last = &segment[1 + 2 * scan.count];
    scan.predictor = last[0];
    scan.shift = last[2] & 15u;
    if (scan.predictor < 1 || scan.predictor > 7) Fail("the stream has predictor ", scan.predictor);
    if (scan.shift >= m_precision) Fail("the stream's point transform leaves no bits");
    return scan;
}

// Looks up the components that a scan header lists; they must be neighbours, in the order of the frame header.
void LosslessJpegDecoder::AddComponents(Bytes segment, Scan& scan) {
    for (std::size_t i = 0; i < scan.count; ++i) {
        const auto found = std::find_if(m_components.begin(), m_components.end(), [&](const Component& component) {
            return component.id == segment[1 + 2 * i] && !component.isDecoded;
        });
        const auto index = static_cast<std::size_t>(found - m_components.begin());
        if (i == 0) scan.first = index;
        if (found == m_components.end() || index != scan.first + i) Fail("a scan has unknown components");
        found->isDecoded = true;
        const unsigned table = segment[2 + 2 * i] >> 4;
        if (table >= 4 || !m_tables[table].IsDefined()) Fail("a scan's Huffman table is missing");
        scan.tables[i] = &m_tables[table];
    }
}

void LosslessJpegDecoder::DecodeScan(const Scan& scan) {
    const std::size_t width = m_layout.Columns();
    if (m_restartInterval % width != 0) Fail("the restart interval is not a number of whole rows");
    const std::size_t rowsBetween = m_restartInterval != 0 ? m_restartInterval / width : m_layout.Rows();
    std::vector<std::uint16_t> lines(2 * (width + 1) * scan.count);
    std::uint16_t* line = lines.data();
    std::uint16_t* above = line + (width + 1) * scan.count;
    m_bits = {};
    m_bits.at = m_stream.at;
    m_bits.end = m_stream.end;
    for (std::size_t row = 0; row < m_layout.Rows(); ++row) {
        const bool isFirst = row % rowsBetween == 0;
        if (isFirst && row != 0) Restart(static_cast<unsigned>((row / rowsBetween - 1) % 8));
        DecodeLine(scan, isFirst, above, line);
        if (m_bits.IsOverrun()) Fail("the stream ends in row ", row + 1, " of ", m_layout.Rows());
        std::swap(line, above);
        StoreLine(scan, row, above);
    }
    m_stream.at = m_bits.at;
}

void LosslessJpegDecoder::Restart(unsigned number) {
    m_stream.at = m_bits.at;
    if (m_stream.NextMarker() != kRst0 + number) Fail("a restart marker is missing");
    m_bits = {};
    m_bits.at = m_stream.at;
    m_bits.end = m_stream.end;
}

// The first line of a scan or restart interval uses predictor 1, and its first sample is predicted as half of the range
// (T.81 H.1.2.1). In all other lines the first sample is predicted from the one above. Setting the extra pixels left of
// it, in `line` and `above`, to that sample makes every predictor give just that, so the loop needs no special case.
void LosslessJpegDecoder::DecodeLine(const Scan& scan, bool isFirst, std::uint16_t* above, std::uint16_t* line) {
    for (std::size_t c = 0; c < scan.count; ++c) {
        above[c] = above[scan.count + c];
        line[c] = isFirst ? static_cast<std::uint16_t>(1u << (m_precision - scan.shift - 1)) : above[c];
    }
    const unsigned predictor = isFirst ? 1 : scan.predictor;
    if (scan.count == 1) {
        DecodeByPredictor<1>(predictor, m_bits, scan.tables, scan.count, m_layout.Columns(), above, line);
    } else {
        DecodeByPredictor<0>(predictor, m_bits, scan.tables, scan.count, m_layout.Columns(), above, line);
    }
}

void LosslessJpegDecoder::StoreLine(const Scan& scan, std::size_t row, const std::uint16_t* line) {
    const std::uint16_t* values = line + scan.count;
    if (scan.shift != 0) {
        m_values.resize(m_layout.Columns() * scan.count);
        for (std::size_t i = 0; i < m_values.size(); ++i) {
            m_values[i] = static_cast<std::uint16_t>(values[i] << scan.shift);
        }
        values = m_values.data();
    }
    m_layout.StoreLine(m_pixels, row, scan.first, scan.count, values);
}
