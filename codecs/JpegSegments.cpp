#include "JpegSegments.h"

#include "Codec.h"

#include <cstring>

void JpegSegments::Begin() {
    if (end - at < 2 || LoadJpeg16(at) != (0xFF00 | kSoi)) Fail("the stream is not JPEG");
    at += 2;
}

unsigned JpegSegments::NextMarker() {
    while (end - at >= 2) {
        at = static_cast<const std::uint8_t*>(std::memchr(at, 0xFF, static_cast<std::size_t>(end - at - 1)));
        if (at == nullptr) break;
        const unsigned marker = at[1];
        if (marker != 0 && marker != 0xFF) {
            at += 2;
            return marker;
        }
        ++at;
    }
    Fail("the stream ends early");
}

std::span<const std::uint8_t> JpegSegments::Segment() {
    const auto left = static_cast<std::size_t>(end - at);
    const std::size_t length = left < 2 ? 0 : LoadJpeg16(at);
    if (length < 2 || length > left) Fail("the stream ends within a marker's segment");
    const std::span<const std::uint8_t> segment(at + 2, length - 2);
    at += length;
    return segment;
}
