#include "JpegCodec.h"

#include "FrameLayout.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <vector>

#include <jerror.h>
#include <jpeglib.h>

namespace {

// Owns libjpeg's decompression object. The library reports errors by calling a function that must not return, and no
// exception may pass through its C frames: OnMessage therefore jumps (longjmp) back into Try, which throws.
class Decompressor {
public:
    explicit Decompressor(std::span<const std::uint8_t> stream);
    ~Decompressor() { jpeg_destroy_decompress(&m_info); }
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;

    jpeg_decompress_struct& Info() { return m_info; }
    // Runs `step`, which calls the library. A jump skips destructors, so `step` must not have objects that need one.
    // Throws CodecFailure when the library reports an error.
    template <class Step>
    void Try(Step step) {
        if (!Returns(step)) Fail("JPEG: ", m_reason);
    }

private:
    Decompressor();
    template <class Step>
    bool Returns(Step& step) {
        if (setjmp(m_jump) != 0) return false;
        step();
        return true;
    }
    [[noreturn]] static void OnError(j_common_ptr info);
    static void OnMessage(j_common_ptr info, int level);
    static void OnProgress(j_common_ptr info);
    static void OnOutput(j_common_ptr /*info*/) {}

    jpeg_decompress_struct m_info{};
    jpeg_error_mgr m_errors{};
    jpeg_progress_mgr m_progress{};
    std::jmp_buf m_jump{};
    char m_reason[JMSG_LENGTH_MAX]{};
};

Decompressor::Decompressor() {
    m_info.err = jpeg_std_error(&m_errors);
    m_errors.error_exit = OnError;
    m_errors.emit_message = OnMessage;
    m_errors.output_message = OnOutput;
    m_info.client_data = this;
}

// The object is whole once the constructor above has run, so what the library allocates is freed when it then refuses
// the stream, an empty one for example.
Decompressor::Decompressor(std::span<const std::uint8_t> stream) : Decompressor() {
    Try([&] {
        jpeg_create_decompress(&m_info);
        m_progress.progress_monitor = OnProgress;
        m_info.progress = &m_progress;
        jpeg_mem_src(&m_info, stream.data(), static_cast<unsigned long>(stream.size()));
    });
}

void Decompressor::OnError(j_common_ptr info) {
    auto* self = static_cast<Decompressor*>(info->client_data);
    if (info->err->msg_code == JERR_BAD_PRECISION) {
        std::snprintf(self->m_reason, sizeof self->m_reason, "samples of %d bits cannot be decoded",
                      info->err->msg_parm.i[0]);
    } else {
        info->err->format_message(info, self->m_reason);
    }
    std::longjmp(self->m_jump, 1);
}

// The library only warns of damaged data and fills the rest with grey; here that is an error. Warnings that do not
// concern pixels are ignored.
void Decompressor::OnMessage(j_common_ptr info, int level) {
    const int code = info->err->msg_code;
    const bool isHarmless = level >= 0 || code == JWRN_EXTRANEOUS_DATA || code == JWRN_JFIF_MAJOR ||
                            code == JWRN_ADOBE_XFORM || code == JWRN_BOGUS_ICC || code == JWRN_TOO_MUCH_DATA;
    if (!isHarmless) OnError(info);
}

// A sequential stream has at most one scan for each component. More are an error: a stream of many scans, each of a few
// bytes, could keep the library busy for hours.
void Decompressor::OnProgress(j_common_ptr info) {
    const auto* decompress = reinterpret_cast<j_decompress_ptr>(info);
    if (decompress->input_scan_number > decompress->num_components) ERREXIT(info, JERR_BAD_PROGRESSION);
}

bool HasColourTransform(const jpeg_decompress_struct& info, const DcmFrameFormat& format) {
    if (info.saw_Adobe_marker != 0) return info.Adobe_transform != 0;
    const jpeg_component_info* c = info.comp_info;
    if (c[0].component_id == 'R' && c[1].component_id == 'G' && c[2].component_id == 'B') return false;
    const bool isSubsampled = c[0].h_samp_factor != c[1].h_samp_factor || c[0].v_samp_factor != c[1].v_samp_factor;
    return isSubsampled || !IsPhotometric(format, "RGB");
}

// Checked before any memory is allocated for the image.
void CheckHeader(const jpeg_decompress_struct& info, const DcmFrameFormat& format) {
    CheckDimensions(format, info.image_width, info.image_height, static_cast<std::uint64_t>(info.num_components));
    if (info.num_components != 1 && info.num_components != 3) Fail("JPEG: pixels of ", info.num_components, " samples");
    if (info.progressive_mode != 0 || info.arith_code != 0) Fail("JPEG: the stream is neither baseline nor extended");
}

}  // namespace

void JpegCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) {
    Decompressor decompressor(stream);
    jpeg_decompress_struct& info = decompressor.Info();
    decompressor.Try([&] { jpeg_read_header(&info, TRUE); });
    CheckHeader(info, format);
    if (info.num_components == 3) {
        info.jpeg_color_space = HasColourTransform(info, format) ? JCS_YCbCr : JCS_RGB;
        info.out_color_space = JCS_RGB;
    } else {
        info.jpeg_color_space = info.out_color_space = JCS_GRAYSCALE;
    }
    decompressor.Try([&] { jpeg_start_decompress(&info); });

    const FrameLayout layout(format);
    std::vector<std::uint8_t> line(layout.Columns() * layout.Samples());
    for (std::size_t row = 0; row < layout.Rows(); ++row) {
        JSAMPROW rows[] = {line.data()};
        decompressor.Try([&] { jpeg_read_scanlines(&info, rows, 1); });
        layout.StoreLine(pixels.data(), row, 0, layout.Samples(), line.data());
    }
    if (info.num_components == 3) SetPhotometric(format, "RGB");
    format.lossy = 1;
}
