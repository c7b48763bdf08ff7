#include "PngWriter.h"

#include "../core/Error.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <limits>
#include <new>
#include <png.h>

namespace korvane {

namespace {

constexpr int kCompression = 4;  // of 9: beyond it pictures take far longer and get hardly smaller
constexpr int kBand = 64;        // rows between two looks at the watcher

void WriteBytes(png_structp png, png_bytep bytes, std::size_t count) {
    auto* const file = static_cast<platform::OutputFile*>(png_get_io_ptr(png));
    errno = 0;
    if (!file->Write(bytes, count)) png_error(png, "");
}

void Flush(png_structp /*png*/) {}
void IgnoreWarning(png_structp /*png*/, png_const_charp /*text*/) {}

// libpng knows the way back from an error, over frames of C, as a jump only.
void JumpBack(png_structp png, png_const_charp /*text*/) {
    png_longjmp(png, 1);
}

}  // namespace

/// libpng's two structures. Its calls that may fail stand in functions of their own, without an object that a jump
/// would leave behind.
struct PngWriter::Encoder {
    explicit Encoder(platform::OutputFile& file)
        : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, JumpBack, IgnoreWarning)) {
        if (png != nullptr) info = png_create_info_struct(png);
        if (info == nullptr) {
            png_destroy_write_struct(&png, nullptr);
            throw std::bad_alloc();
        }
        png_set_write_fn(png, &file, WriteBytes, Flush);
    }
    ~Encoder() { png_destroy_write_struct(&png, &info); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    bool Begin(png_uint_32 width, png_uint_32 height, int bits, int colours, png_uint_32 perMetre) {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_set_user_limits(png, width, height);  // libpng's own are lower
        png_set_compression_level(png, kCompression);
        png_set_IHDR(png, info, width, height, bits, colours, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_BASE,
                     PNG_FILTER_TYPE_BASE);
        if (perMetre > 0) png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
        png_write_info(png, info);
        if (bits == 16 && std::endian::native == std::endian::little) png_set_swap(png);
        return true;
    }

    bool WriteRows(const unsigned char* rows, int count, std::size_t rowBytes) {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        for (int row = 0; row < count; ++row) png_write_row(png, rows + static_cast<std::size_t>(row) * rowBytes);
        return true;
    }

    bool End() {
        if (setjmp(png_jmpbuf(png)) != 0) return false;
        png_write_end(png, info);
        return true;
    }

    png_structp png;
    png_infop info = nullptr;
};

PngWriter::PngWriter(const std::string& path, const Watch& watch) : m_Path(path), m_Watch(watch) {
    errno = 0;
    if (!m_File.Open(path.c_str())) {
        throw Error(ErrorKind::Disk, "cannot create " + path + ": " + SystemText(errno)).InFile(path);
    }
}

void PngWriter::Write(const Picture& picture) {
    Write(picture.GetPixels(), picture.GetWidth(), picture.GetHeight(), 8, picture.GetSamples());
}

void PngWriter::Write(const std::uint16_t* pixels, int width, int height) {
    Write(pixels, width, height, 16, 1);
}

void PngWriter::Write(const void* pixels, int width, int height, int bits, int samples) {
    const double perMetre = m_PixelSize > 0 ? std::round(1000 / m_PixelSize) : 0;
    const bool hasSize = perMetre <= std::numeric_limits<std::int32_t>::max();
    const std::size_t rowBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(bits / 8 * samples);
    const auto* rows = static_cast<const unsigned char*>(pixels);
    bool written;
    int error;
    {
        Encoder encoder(m_File);
        written = encoder.Begin(static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bits,
                                samples == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                                hasSize ? static_cast<png_uint_32>(perMetre) : 0);
        for (int row = 0; written && row < height; row += kBand) {
            m_Watch.StopIfAsked();
            const int count = std::min(kBand, height - row);
            written = encoder.WriteRows(rows + static_cast<std::size_t>(row) * rowBytes, count, rowBytes);
        }
        written = written && encoder.End();
        error = errno;
    }
    if (written) {
        errno = 0;
        written = m_File.Close();
        error = errno;
    }
    if (!written) throw Error(ErrorKind::Disk, "cannot write " + m_Path + ": " + SystemText(error)).InFile(m_Path);
}

}  // namespace korvane
