// One image's pixel data through a codec, frame by frame.
#pragma once

#include "CodecModule.h"
#include "DICOMObject.h"
#include "ImageFormat.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

class FragmentedFrames;

/// First `Decode` or `Encode`, which leave the data set as it is; then `Apply` puts the result into it.
/// May throw `std::bad_alloc`; what a module throws goes through.
class PixelTranscoder {
public:
    /// `stop`, which may be empty, is asked before each frame; both must outlive this object.
    PixelTranscoder(DcmCodec& codec, const std::function<bool()>& stop) : m_Codec(codec), m_Stop(stop) {}

    bool Decode(const DICOMObject& dataSet);
    bool Encode(const DICOMObject& dataSet);

    /// Replaces pixel data, and the attributes that describe it. `syntax`: the compressed one.
    bool Apply(DICOMObject& dataSet, std::string_view syntax);

    const std::string& GetError() const { return m_Error; }
    bool WasLossy() const { return m_bLossy; }

private:
    bool Begin(const DICOMObject& dataSet);
    bool DecodeAll(const FragmentedFrames& frames);
    bool DecodeFrame(std::uint32_t index, std::span<const unsigned char> stream, unsigned char* pixels);
    bool EncodeFrame(std::uint32_t index, const unsigned char* pixels);
    bool TakeFormat(std::uint32_t index, const DcmFrameFormat& format);
    void WriteOffsetTable();
    bool Fail(std::string reason);
    bool FailFrame(std::uint32_t index, std::string_view reason);

    DcmCodec& m_Codec;
    const std::function<bool()>& m_Stop;
    ImageFormat m_Format;             // what the data set says
    DcmFrameFormat m_NewFormat{};     // what the codec says, the same for all frames
    std::unique_ptr<VR> m_pResult;    // the new pixel data
    std::uint64_t m_StreamBytes = 0;  // compressed
    bool m_bLossy = false;
    std::string m_Error;
};
