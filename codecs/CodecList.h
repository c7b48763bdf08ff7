// The codecs that this build of the module has.
#pragma once

#include "Codec.h"

#include <memory>

struct CodecOffer {
    const char* transferSyntax;
    std::uint8_t abilities;  // DCM_CODEC_...
    std::unique_ptr<Codec> (*make)();
};

std::span<const CodecOffer> CodecOffers();
