// What a JPEG 2000 code stream says in front (ITU-T T.800 A.5.1): read before its decoder takes memory for it.
#pragma once

#include "Codec.h"

struct Jpeg2000Header {
    unsigned precision = 0;
    bool isSigned = false;

    /// Throws CodecFailure unless the stream's image is the frame's, of components that are all alike and as large as
    /// it, in as many tiles and precincts as such an image may have, and in as few bytes: where nothing is in any of its
    /// packets, the decoder takes gigabytes and a minute for a stream of a few hundred.
    Jpeg2000Header(std::span<const std::uint8_t> codeStream, const DcmFrameFormat& format);
};

/// `stream` itself, or the code stream within it when it is a JP2 file.
std::span<const std::uint8_t> FindCodeStream(std::span<const std::uint8_t> stream);
