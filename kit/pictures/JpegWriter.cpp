#include "JpegWriter.h"

#include "../core/Error.h"

#include "../../platform/File.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>

namespace korvane {

namespace {

constexpr int kQuality = 92;
constexpr JDIMENSION kBand = 64;  // rows between two looks at the watcher

struct Failure {
    jpeg_error_mgr manager;
    std::jmp_buf way;
};

// libjpeg knows the way back from an error, over frames of C, as a jump only.
[[noreturn]] void JumpBack(j_common_ptr common) {
    std::longjmp(reinterpret_cast<Failure*>(common->err)->way, 1);
}

void KeepQuiet(j_common_ptr /*common*/) {}

/// libjpeg's structure and the memory that it writes to. Its calls that may fail stand in functions of their own, without
/// an object that a jump would leave behind.
class Compressor {
public:
    Compressor() {
        m_Info.err = jpeg_std_error(&m_Failure.manager);
        m_Failure.manager.error_exit = JumpBack;
        m_Failure.manager.output_message = KeepQuiet;
    }
    ~Compressor() {
        jpeg_destroy_compress(&m_Info);
        std::free(m_pBytes);  // libjpeg took it from malloc
    }
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    bool Begin(JDIMENSION width, JDIMENSION height, int samples) {
        if (setjmp(m_Failure.way) != 0) return false;
        jpeg_create_compress(&m_Info);
        jpeg_mem_dest(&m_Info, &m_pBytes, &m_Size);
        m_Info.image_width = width;
        m_Info.image_height = height;
        m_Info.input_components = samples;
        m_Info.in_color_space = samples == 3 ? JCS_RGB : JCS_GRAYSCALE;
        jpeg_set_defaults(&m_Info);
        jpeg_set_quality(&m_Info, kQuality, TRUE);
        m_Info.comp_info[0].h_samp_factor = 1;  // colours at full size
        m_Info.comp_info[0].v_samp_factor = 1;
        jpeg_start_compress(&m_Info, TRUE);
        return true;
    }

    bool WriteRows(const std::uint8_t* rows, JDIMENSION count, std::size_t rowBytes) {
        if (setjmp(m_Failure.way) != 0) return false;
        for (JDIMENSION row = 0; row < count; ++row) {
            JSAMPROW line = const_cast<JSAMPROW>(rows + row * rowBytes);  // libjpeg only reads it
            jpeg_write_scanlines(&m_Info, &line, 1);
        }
        return true;
    }

    bool End() {
        if (setjmp(m_Failure.way) != 0) return false;
        jpeg_finish_compress(&m_Info);
        return true;
    }

    const unsigned char* GetBytes() const { return m_pBytes; }
    std::size_t GetSize() const { return m_Size; }

private:
    jpeg_compress_struct m_Info{};
    Failure m_Failure{};
    unsigned char* m_pBytes = nullptr;
    unsigned long m_Size = 0;
};

}  // namespace

void WriteJpeg(const Picture& picture, const std::string& path, const Watch& watch) {
    const auto height = static_cast<JDIMENSION>(picture.GetHeight());
    const std::size_t rowBytes = picture.GetSize() / height;
    Compressor compressor;
    // libjpeg takes sides of up to 65500 pixels.
    bool made = compressor.Begin(static_cast<JDIMENSION>(picture.GetWidth()), height, picture.GetSamples());
    for (JDIMENSION row = 0; made && row < height; row += kBand) {
        watch.StopIfAsked();
        made = compressor.WriteRows(picture.GetPixels() + row * rowBytes, std::min(kBand, height - row), rowBytes);
    }
    if (!made || !compressor.End()) {
        throw Error(ErrorKind::Unsupported, path + ": a JPEG file cannot hold " + std::to_string(picture.GetWidth()) +
                                                " x " + std::to_string(picture.GetHeight()) + " pixels")
            .InFile(path);
    }
    platform::OutputFile file;
    errno = 0;
    if (!file.Open(path.c_str()) || !file.Write(compressor.GetBytes(), compressor.GetSize()) || !file.Close()) {
        throw Error(ErrorKind::Disk, "cannot write " + path + ": " + SystemText(errno)).InFile(path);
    }
}

}  // namespace korvane
