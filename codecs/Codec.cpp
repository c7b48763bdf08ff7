#include "Codec.h"

void Codec::Encode(DcmFrameFormat& /*format*/, std::span<const std::uint8_t> /*pixels*/,
                   const FrameWriter& /*writer*/) {
    Fail("this codec does not encode");
}
