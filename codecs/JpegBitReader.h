// Reads the entropy-coded bits between two markers of a JPEG stream, most significant bit first (ITU-T T.81 F.2.2.5).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// A zero byte behind 0xFF is stuffing and is skipped; 0xFF with any other byte is a marker and ends the bits, as the
/// end of the stream does. Behind the end zeros are delivered; IsOverrun tells whether any was used, so that a decoder
/// needs to ask only once in a while.
///
/// A plain struct, so that an inner loop can work on a copy in registers and store it back at the end. It owns nothing.
struct JpegBitReader {
    std::uint64_t bits = 0;             ///< the next bits of the stream, beginning at the top bit
    unsigned count = 0;                 ///< how many of `bits` are valid
    unsigned padding = 0;               ///< how many of the valid ones, the last of them, are zeros from behind the end
    const std::uint8_t* at = nullptr;   // the next byte to load
    const std::uint8_t* end = nullptr;  // the end of the stream

    /// Loads bytes until `count` is at least 56. Bits of `bits` below the valid ones may already be set: they are the
    /// next byte's first, and are or-ed in again, unchanged, by the next Fill.
    void Fill() {
        if (end - at >= 8) {
            const std::uint64_t word = LoadBig(at);
            if ((word & ~(word + 0x0101010101010101u) & 0x8080808080808080u) == 0) {  // no byte is 0xFF
                bits |= word >> count;
                const unsigned bytes = (63 - count) / 8;
                at += bytes;
                count += 8 * bytes;
                return;
            }
        }
        *this = FilledByBytes(*this);
    }

    /// Whether bits from behind the end have been consumed.
    bool IsOverrun() const { return count < padding; }

    /// Eight bytes as a big-endian number.
    static std::uint64_t LoadBig(const std::uint8_t* bytes) {
        std::uint64_t word = 0;
        for (int i = 0; i < 8; ++i) word = word << 8 | bytes[i];
        return word;
    }
    /// Fill, byte by byte: where one of the next eight bytes is 0xFF, and near the end.
    static JpegBitReader FilledByBytes(JpegBitReader reader);
};
