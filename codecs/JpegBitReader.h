// The bits between two markers of a JPEG stream, most significant first; a zero byte behind 0xFF is stuffing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Meant to be copied into a loop's registers and back. Behind the last bit come zeros; IsOverrun tells.
struct JpegBitReader {
    std::uint64_t bits = 0;  // the next ones, from the top
    unsigned count = 0;      // how many of them are there
    unsigned padding = 0;    // bits that no byte of the stream holds, the last of those in `bits`
    const std::uint8_t* at = nullptr;
    const std::uint8_t* end = nullptr;

    /// Makes `count` at least 56. Bits beyond `count` may be those of the next byte already.
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

    bool IsOverrun() const { return count < padding; }

    static std::uint64_t LoadBig(const std::uint8_t* bytes) {
        std::uint64_t word = 0;
        for (int i = 0; i < 8; ++i) word = word << 8 | bytes[i];
        return word;
    }
    static JpegBitReader FilledByBytes(JpegBitReader reader);
};
