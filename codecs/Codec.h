// The base class of this module's codecs, the stream that they write to, and the exception by which they fail.
#pragma once

#include <Korvane/Dicom/Lib/pixels/CodecModule.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

/// Thrown when a frame cannot be decoded or encoded. Module.cpp catches it and hands its text to the codec manager,
/// which adds the number of the frame.
class CodecFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws a CodecFailure whose text is the arguments, texts and numbers, joined without separators.
template <class... Parts>
[[noreturn]] void Fail(const Parts&... parts) {
    const auto text = [](const auto& part) {
        if constexpr (requires { std::to_string(part); }) {
            return std::to_string(part);
        } else {
            return std::string(part);
        }
    };
    throw CodecFailure((text(parts) + ...));
}

/// Hands the bytes of an encoded frame to the codec manager's callback, in order. Owns nothing.
class FrameWriter {
public:
    FrameWriter(DcmCodecWrite write, void* context) : m_write(write), m_context(context) {}
    /// Throws CodecFailure when the manager has no room for the bytes.
    void Write(std::span<const std::uint8_t> bytes) const {
        if (!bytes.empty() && m_write(m_context, bytes.data(), bytes.size()) == 0) {
            Fail("no room for the encoded frame");
        }
    }

private:
    DcmCodecWrite m_write;
    void* m_context;
};

/// One codec: turns the compressed stream of one frame into pixels, and back. An object may be used for any number of
/// frames, by one thread at a time.
///
/// `format` describes the frame (PS3.3 C.7.6.3) as the data set does; CodecModule.h says what its fields mean and which
/// of them a codec may change. `pixels` are columns x rows x samplesPerPixel x bitsAllocated / 8 bytes without gaps,
/// samples little endian. Module.cpp has checked both before a codec is called. Buffers belong to the caller.
///
/// Streams come from files and may hold anything. Both calls throw CodecFailure, or std::bad_alloc; `format` and
/// `pixels` are then of no use.
class Codec {
public:
    virtual ~Codec() = default;
    /// Writes all of `pixels`, and corrects `format` where the stream's pixels differ from what the data set says.
    virtual void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels) = 0;
    /// The base class fails: most codecs only decode.
    virtual void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer);
};
