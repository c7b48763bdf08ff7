// What every codec of this module is, and how one fails.
#pragma once

#include <Korvane/Dicom/Lib/pixels/CodecModule.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

/// Why a frame cannot be decoded or encoded. Caught at the module's edge, where its text becomes the codec's reason.
class CodecFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws a CodecFailure made of texts and numbers, one behind the other.
template <class... Parts>
[[noreturn]] void Fail(const Parts&... parts) {
    const auto text = [](const auto& part) {
        if constexpr (requires { std::to_string(part); })
            return std::to_string(part);
        else
            return std::string(part);
    };
    throw CodecFailure((text(parts) + ...));
}

/// Where an encoded frame goes.
class FrameWriter {
public:
    FrameWriter(DcmCodecWrite write, void* context) : m_write(write), m_context(context) {}
    void Write(std::span<const std::uint8_t> bytes) const {
        if (!bytes.empty() && m_write(m_context, bytes.data(), bytes.size()) == 0)
            Fail("no room for the encoded frame");
    }

private:
    DcmCodecWrite m_write;
    void* m_context;
};

/// One codec: frames to streams and back. What the format means, and what of it a codec may change, is said in
/// CodecModule.h; both calls throw CodecFailure, or std::bad_alloc.
class Codec {
public:
    virtual ~Codec() = default;
    virtual void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                        std::span<std::uint8_t> pixels) = 0;
    virtual void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer);
};
