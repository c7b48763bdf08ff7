// The main header of a JPEG 2000 code stream (ITU-T T.800 annex A), checked before the decoder allocates memory for it.
#pragma once

#include "Codec.h"

/// Reads and checks a header. The decoder believes what a header states: a hostile one of a few hundred bytes can make
/// it take gigabytes and a minute. Hence the limits on tiles, precincts and pixels for each byte of the stream.
struct Jpeg2000Header {
    unsigned precision = 0;  ///< bits of a sample, 1 to 31, the same for all components
    bool isSigned = false;   ///< samples are two's complement

    /// Throws CodecFailure unless
    /// - columns, rows and number of components are those of `format`;
    /// - all components have the same precision, which fits into the bits allocated, and none is subsampled;
    /// - the numbers of tiles and precincts are plausible for an image of that size;
    /// - the stream is long enough for an image of that size.
    Jpeg2000Header(std::span<const std::uint8_t> codeStream, const DcmFrameFormat& format);
};

/// The code stream: `stream` itself, or a part of it when it is a JP2 file (ITU-T T.800 annex I). Throws CodecFailure
/// for a JP2 file without one.
std::span<const std::uint8_t> FindCodeStream(std::span<const std::uint8_t> stream);
