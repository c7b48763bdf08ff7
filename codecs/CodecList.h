// The list of codecs in this build of the module. JPEG, JPEG-LS and JPEG 2000 are left out where their library was
// missing.
#pragma once

#include "Codec.h"

#include <memory>

/// One transfer syntax and the codec for it.
struct CodecOffer {
    const char* transferSyntax;        ///< its UID
    std::uint8_t abilities;            ///< DCM_CODEC_DECODES, DCM_CODEC_ENCODES and DCM_CODEC_LOSSY, as apply
    std::unique_ptr<Codec> (*make)();  ///< makes a new codec object, which the caller owns
};

/// All offers, in the order in which the module numbers them; they live as long as the program.
std::span<const CodecOffer> CodecOffers();
