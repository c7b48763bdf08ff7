#include "RleCodec.h"

#include "FrameLayout.h"
#include "RleSegment.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::size_t kHeaderSize = 64;
constexpr std::size_t kMostSegments = 15;
constexpr std::size_t kPiece = 4096;  // pixels decoded at a time, so that their planes stay in the first-level cache

std::uint32_t LoadWord(const std::uint8_t* bytes) {
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[3]) << 24;
}

void StoreWord(std::uint8_t* bytes, std::size_t word) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(word >> 8 * i);
}

std::size_t SegmentCount(const FrameLayout& layout) {
    const std::size_t count = layout.Samples() * layout.SampleBytes();
    if (count > kMostSegments) Fail("RLE has no room for pixels of ", count, " bytes");
    return count;
}

// A reader for each segment that the stream's header lists (PS3.5 G.5). A segment ends where the next one starts.
std::vector<RleSegmentReader> FindSegments(std::span<const std::uint8_t> stream, std::size_t count) {
    if (stream.size() < kHeaderSize) Fail("the RLE header is not whole");
    const std::uint32_t stated = LoadWord(stream.data());
    if (stated != count) Fail("the stream has ", stated, " RLE segments, not ", count);
    std::vector<RleSegmentReader> segments;
    for (std::size_t i = 1; i <= count; ++i) {
        const std::size_t start = LoadWord(&stream[4 * i]);
        const std::size_t end = i == count ? stream.size() : LoadWord(&stream[4 * i + 4]);
        if (start < kHeaderSize || start > end || end > stream.size()) Fail("RLE segment ", i, " lies outside");
        segments.emplace_back(stream.subspan(start, end - start));
    }
    return segments;
}

using Planes = std::array<std::array<std::uint8_t, kPiece>, 4>;

// Joins planes of bytes, the most significant ones first, into little-endian samples that are `step` bytes apart. The
// number of planes is a template argument, and the case without gaps a loop of its own, because the compiler then makes
// vector shuffles of it.
template <std::size_t bytes>
void JoinPlanes(const Planes& planes, std::size_t count, std::uint8_t* out, std::size_t step) {
    if (step == bytes) {
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t b = 0; b < bytes; ++b) out[i * bytes + b] = planes[bytes - 1 - b][i];
        }
        return;
    }
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t b = 0; b < bytes; ++b) out[i * step + b] = planes[bytes - 1 - b][i];
    }
}

}  // namespace

void RleCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) {
    const FrameLayout layout(format);
    const std::size_t bytes = layout.SampleBytes();
    const std::size_t step = layout.PixelStep() * bytes;
    const std::size_t pixelCount = layout.Columns() * layout.Rows();
    std::vector<RleSegmentReader> segments = FindSegments(stream, SegmentCount(layout));

    if (step == 1) {
        for (std::size_t c = 0; c < layout.Samples(); ++c) segments[c].Read(&pixels[c * pixelCount], pixelCount);
    }
    Planes planes;
    for (std::size_t done = 0; step > 1 && done < pixelCount; done += kPiece) {
        const std::size_t count = std::min(kPiece, pixelCount - done);
        for (std::size_t c = 0; c < layout.Samples(); ++c) {
            for (std::size_t b = 0; b < bytes; ++b) segments[c * bytes + b].Read(planes[b].data(), count);
            std::uint8_t* const out = pixels.data() + layout.Offset(c, 0) + done * step;
            if (bytes == 1) {
                JoinPlanes<1>(planes, count, out, step);
            } else if (bytes == 2) {
                JoinPlanes<2>(planes, count, out, step);
            } else {
                JoinPlanes<4>(planes, count, out, step);
            }
        }
    }
    if (IsPhotometric(format, "YBR_FULL_422")) SetPhotometric(format, "YBR_FULL");  // no longer subsampled
    format.lossy = 0;
}

void RleCodec::Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer) {
    const FrameLayout layout(format);
    const std::size_t bytes = layout.SampleBytes();
    const std::size_t step = layout.PixelStep() * bytes;
    const std::size_t count = SegmentCount(layout);

    std::vector<std::uint8_t> packed(kHeaderSize);
    packed.reserve(kHeaderSize + pixels.size());  // seldom more, and not taken before it is written to
    StoreWord(packed.data(), count);
    std::vector<std::uint8_t> row(layout.Columns());
    for (std::size_t i = 0; i < count; ++i) {
        StoreWord(&packed[4 + 4 * i], packed.size());
        const std::size_t byte = bytes - 1 - i % bytes;
        for (std::size_t y = 0; y < layout.Rows(); ++y) {
            const std::uint8_t* const from = pixels.data() + layout.Offset(i / bytes, y) + byte;
            for (std::size_t x = 0; x < row.size(); ++x) row[x] = from[x * step];
            PackRow(row, packed);
        }
        if (packed.size() % 2 != 0) packed.push_back(0);
        if (packed.size() >> 31 > 1) Fail("the frame is too large for RLE");  // the header's offsets have 32 bits
    }
    writer.Write(packed);
    format.lossy = 0;
}
