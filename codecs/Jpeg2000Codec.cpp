#include "Jpeg2000Codec.h"

#include "FrameLayout.h"
#include "Jpeg2000Header.h"

#include <algorithm>
#include <memory>

#include <openjpeg.h>

namespace {

void DestroyInfo(opj_codestream_info_v2_t* info) {
    opj_destroy_cstr_info(&info);
}

template <auto destroy>
struct Deleter {
    template <class T>
    void operator()(T* object) const {
        destroy(object);
    }
};
// opj_codec_t and opj_stream_t are both typedefs of void*: the deleters keep them apart.
using CodecPointer = std::unique_ptr<opj_codec_t, Deleter<opj_destroy_codec>>;
using StreamPointer = std::unique_ptr<opj_stream_t, Deleter<opj_stream_destroy>>;
using ImagePointer = std::unique_ptr<opj_image_t, Deleter<opj_image_destroy>>;
using InfoPointer = std::unique_ptr<opj_codestream_info_v2_t, Deleter<DestroyInfo>>;

// A stream of the library's that reads from memory.
struct Memory {
    std::span<const std::uint8_t> bytes;
    std::size_t at = 0;

    std::size_t Left() const { return bytes.size() - at; }
};

OPJ_SIZE_T Read(void* out, OPJ_SIZE_T count, void* context) {
    auto* memory = static_cast<Memory*>(context);
    const std::size_t taken = std::min<std::size_t>(count, memory->Left());
    if (taken == 0) return static_cast<OPJ_SIZE_T>(-1);
    std::memcpy(out, memory->bytes.data() + memory->at, taken);
    memory->at += taken;
    return taken;
}

OPJ_OFF_T Skip(OPJ_OFF_T count, void* context) {
    auto* memory = static_cast<Memory*>(context);
    if (count < 0) return -1;
    const auto taken = std::min<std::uint64_t>(static_cast<std::uint64_t>(count), memory->Left());
    memory->at += static_cast<std::size_t>(taken);
    return taken == 0 ? -1 : static_cast<OPJ_OFF_T>(taken);
}

OPJ_BOOL Seek(OPJ_OFF_T position, void* context) {
    auto* memory = static_cast<Memory*>(context);
    if (position < 0 || static_cast<std::uint64_t>(position) > memory->bytes.size()) return OPJ_FALSE;
    memory->at = static_cast<std::size_t>(position);
    return OPJ_TRUE;
}

StreamPointer OpenStream(Memory& memory) {
    StreamPointer stream(opj_stream_default_create(OPJ_TRUE));
    if (stream == nullptr) throw std::bad_alloc();
    opj_stream_set_read_function(stream.get(), Read);
    opj_stream_set_skip_function(stream.get(), Skip);
    opj_stream_set_seek_function(stream.get(), Seek);
    opj_stream_set_user_data(stream.get(), &memory, nullptr);
    opj_stream_set_user_data_length(stream.get(), memory.bytes.size());
    return stream;
}

// Keeps the first message, which is the one with the cause.
void OnError(const char* message, void* context) {
    auto* reason = static_cast<std::string*>(context);
    try {
        if (reason->empty()) *reason = std::string(message).substr(0, std::strcspn(message, "\r\n"));
    } catch (...) {
        reason->clear();
    }
}

CodecPointer MakeDecoder(std::string& reason) {
    CodecPointer codec(opj_create_decompress(OPJ_CODEC_J2K));
    if (codec == nullptr) throw std::bad_alloc();
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    opj_set_error_handler(codec.get(), OnError, &reason);
    if (opj_setup_decoder(codec.get(), &parameters) == OPJ_FALSE ||
        opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE) == OPJ_FALSE) {
        Fail("JPEG 2000: no decoder");
    }
    return codec;
}

// Whether the stream uses the irreversible 9-7 wavelet, which rounds. The 5-3 wavelet is reversible; whether its
// encoder left bits out cannot be seen in a stream.
bool IsRounded(opj_codec_t* codec) {
    const InfoPointer info(opj_get_cstr_info(codec));
    return info != nullptr && info->m_default_tile_info.tccp_info != nullptr &&
           info->m_default_tile_info.tccp_info[0].qmfbid == 0;
}

void StoreImage(const opj_image_t& image, const DcmFrameFormat& format, std::uint8_t* pixels) {
    const FrameLayout layout(format);
    CheckDimensions(format, image.comps[0].w, image.comps[0].h, image.numcomps);
    for (std::size_t c = 0; c < layout.Samples(); ++c) {
        const opj_image_comp_t& component = image.comps[c];
        if (component.data == nullptr || component.w != format.columns || component.h != format.rows) {
            Fail("JPEG 2000: a component is missing");
        }
        for (std::size_t row = 0; row < layout.Rows(); ++row) {
            layout.StoreLine(pixels, row, c, 1, component.data + row * layout.Columns());
        }
    }
}

}  // namespace

void Jpeg2000Codec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                           std::span<std::uint8_t> pixels) {
    Memory memory{FindCodeStream(stream)};
    const Jpeg2000Header header(memory.bytes, format);

    std::string reason;
    const StreamPointer source = OpenStream(memory);
    const CodecPointer codec = MakeDecoder(reason);
    opj_image_t* made = nullptr;
    const bool hasHeader = opj_read_header(source.get(), codec.get(), &made) != OPJ_FALSE;
    const ImagePointer image(made);
    if (!hasHeader || image == nullptr || opj_decode(codec.get(), source.get(), image.get()) == OPJ_FALSE) {
        Fail("JPEG 2000: ", reason.empty() ? "the stream is damaged" : reason.c_str());
    }
    StoreImage(*image, format, pixels.data());

    if (header.isSigned) format.pixelRepresentation = 1;
    FinishSamples(format, header.precision, pixels);
    if (IsPhotometric(format, "YBR_RCT") || IsPhotometric(format, "YBR_ICT")) SetPhotometric(format, "RGB");
    if (IsPhotometric(format, "YBR_FULL_422")) SetPhotometric(format, "YBR_FULL");  // no longer subsampled
    format.lossy = IsRounded(codec.get()) ? 1 : 0;
}
