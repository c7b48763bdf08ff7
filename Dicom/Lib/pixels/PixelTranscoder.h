// One image's pixel data through a codec, frame by frame.
#pragma once

#include "../dataset/DICOMObject.h"
#include "CodecModule.h"
#include "FragmentedFrames.h"
#include "ImageFormat.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

/// First `Decode`, `DecodeFirst` or `Encode`, which leave the data set as it is; then `Apply` puts the result into it.
/// May throw `std::bad_alloc`; what a module throws goes through.
class PixelTranscoder {
public:
    /// `stop`, which may be empty, is asked before each frame. `scratch` holds a frame while it is encoded: kept from one
    /// object to the next it saves taking fresh memory, which costs as much as the encoding. All must outlive this object.
    PixelTranscoder(DcmCodec& codec, const std::function<bool()>& stop, std::vector<unsigned char>& scratch)
        : m_Codec(codec), m_Stop(stop), m_Scratch(scratch) {}

    /// Takes a decoded frame, which it may change; false: no more.
    using FrameTaker = std::function<bool(std::span<unsigned char> frame)>;

    bool Decode(const DICOMObject& dataSet);
    bool Encode(const DICOMObject& dataSet);

    /// Decodes the first of several frames, unless it takes more to know what the data set must say: a codec that is not
    /// `exact` may find loss in any frame. `Apply` then gives the pixel data its length and no value, takes the fragments
    /// to this object, and `WriteFrames` hands out one frame after the other, once.
    bool DecodeFirst(const DICOMObject& dataSet, bool exact);
    bool HasFramesToWrite() const { return m_pSource != nullptr; }
    /// Only with frames to write. False, without an error, when `take` declined.
    bool WriteFrames(const FrameTaker& take);

    /// Replaces pixel data, and the attributes that describe it. `syntax`: the compressed one.
    bool Apply(DICOMObject& dataSet, std::string_view syntax);

    const std::string& GetError() const { return m_Error; }
    bool WasLossy() const { return m_bLossy; }

private:
    struct BufferDeleter {
        void operator()(unsigned char* block) const;
    };
    using BufferPointer = std::unique_ptr<unsigned char, BufferDeleter>;

    bool Begin(const DICOMObject& dataSet);
    bool BeginDecoding(const DICOMObject& dataSet);
    bool DecodeOthers();
    bool DecodeFrame(std::uint32_t index, std::span<const unsigned char> stream, unsigned char* pixels);
    bool EncodeFrame(std::uint32_t index, const unsigned char* pixels);
    bool TakeFormat(std::uint32_t index, const DcmFrameFormat& format);
    void WriteOffsetTable();
    bool Fail(std::string reason);
    bool FailFrame(std::uint32_t index, std::string_view reason);

    DcmCodec& m_Codec;
    const std::function<bool()>& m_Stop;
    std::vector<unsigned char>& m_Scratch;
    ImageFormat m_Format;             // what the data set says
    DcmFrameFormat m_NewFormat{};     // what the codec says, the same for all frames
    std::unique_ptr<VR> m_pResult;    // the new pixel data
    FragmentedFrames m_Frames;        // of what is decoded
    BufferPointer m_pFirst;           // the first frame, until all have their place
    std::unique_ptr<VR> m_pSource;    // the compressed pixel data, while frames are to be written
    std::uint64_t m_StreamBytes = 0;  // compressed
    bool m_bLossy = false;
    std::string m_Error;
};
