// The markers of a JPEG stream and their segments (ITU-T T.81 annex B).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum JpegMarker : unsigned {
    kSof0 = 0xC0,  // baseline
    kSof1 = 0xC1,  // extended
    kSof3 = 0xC3,  // lossless
    kDht = 0xC4,
    kJpg = 0xC8,
    kDac = 0xCC,
    kSof15 = 0xCF,
    kRst0 = 0xD0,
    kRst7 = 0xD7,
    kSoi = 0xD8,
    kEoi = 0xD9,
    kSos = 0xDA,
    kDqt = 0xDB,
    kDri = 0xDD
};

/// Whether a marker begins a frame: SOF0 to SOF15, between which DHT, JPG and DAC lie.
constexpr bool BeginsJpegFrame(unsigned marker) {
    return marker >= kSof0 && marker <= kSof15 && marker != kDht && marker != kJpg && marker != kDac;
}

/// Walks through a stream; throws CodecFailure where it ends or is no JPEG. The stream must stay.
class JpegSegments {
public:
    explicit JpegSegments(std::span<const std::uint8_t> stream) : at(stream.data()), end(at + stream.size()) {}

    /// The stream begins with SOI; passes it.
    void Begin();
    /// The next marker, which is passed. What lies in front of it, such as bits behind the last that a scan needs, is
    /// skipped.
    unsigned NextMarker();
    /// What belongs to the marker just passed, without its length; passed too.
    std::span<const std::uint8_t> Segment();

    const std::uint8_t* at;
    const std::uint8_t* end;
};

/// The 16-bit number that begins there, high byte first.
inline unsigned LoadJpeg16(const std::uint8_t* bytes) {
    return static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
}
