// For codecs that do not want all values in memory.
#pragma once

#include <cstdint>

class Buffer;
class VR;

/// A codec (`TransferSyntaxCodec`) that is one of these too is asked before each value, and each fragment of compressed
/// pixel data, is read that has `kLeast` bytes or more; a shorter one costs less to hold than to find again.
class ValueLeaver {
public:
    static constexpr std::uint32_t kLeast = 256;

    virtual ~ValueLeaver() = default;

    /// `buffer` stands in front of the value, of `length` bytes. True: it stands behind it now, and the element
    /// has its length (an odd one raised by one) and no data. False: nothing was done; the value is read as ever.
    virtual bool LeaveValue(Buffer& buffer, VR& element, std::uint32_t length) = 0;
};
