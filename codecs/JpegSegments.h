// The markers of a JPEG stream and the segments behind them (ITU-T T.81 annex B).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The second byte of a marker; the first is 0xFF.
enum JpegMarker : unsigned {
    kSof0 = 0xC0,   ///< frame header, baseline process
    kSof1 = 0xC1,   ///< frame header, extended process
    kSof3 = 0xC3,   ///< frame header, lossless process
    kDht = 0xC4,    ///< Huffman tables
    kJpg = 0xC8,    ///< reserved
    kDac = 0xCC,    ///< arithmetic conditioning
    kSof15 = 0xCF,  ///< the last of the frame headers
    kRst0 = 0xD0,   ///< restart; eight of them take turns
    kRst7 = 0xD7,
    kSoi = 0xD8,  ///< start of the image
    kEoi = 0xD9,  ///< end of the image
    kSos = 0xDA,  ///< scan header; entropy-coded data follows
    kDqt = 0xDB,  ///< quantisation tables
    kDri = 0xDD   ///< restart interval
};

/// Whether a marker is a frame header's: SOF0 to SOF15, among whose numbers DHT, JPG and DAC lie.
constexpr bool BeginsJpegFrame(unsigned marker) {
    return marker >= kSof0 && marker <= kSof15 && marker != kDht && marker != kJpg && marker != kDac;
}

/// Walks through a stream from marker to marker. It refers to the stream, which must outlive it. Each call throws
/// CodecFailure where the stream ends too early or is not JPEG. Decoders move `at` past the entropy-coded data
/// themselves.
class JpegSegments {
public:
    explicit JpegSegments(std::span<const std::uint8_t> stream) : at(stream.data()), end(at + stream.size()) {}

    /// Checks that the stream begins with SOI, and moves behind it.
    void Begin();
    /// Moves behind the next marker and returns its second byte. Other bytes in front of it are skipped, such as bits
    /// that the last scan did not need.
    unsigned NextMarker();
    /// Moves behind the segment of the marker just read and returns its contents, without the two bytes of its length.
    std::span<const std::uint8_t> Segment();

    const std::uint8_t* at;   ///< the next byte
    const std::uint8_t* end;  ///< the end of the stream
};

/// A 16-bit number, high byte first.
inline unsigned LoadJpeg16(const std::uint8_t* bytes) {
    return static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
}
