#include "PngWriter.h"

#include "../core/Error.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <exception>
#include <limits>
#include <new>
#include <png.h>

namespace korvane {

namespace {

constexpr int kCompression = 4;  // of 9: beyond it pictures take far longer and get hardly smaller
constexpr int kBand = 64;        // rows between two looks at the watcher

void WriteBytes(png_structp png, png_bytep bytes, std::size_t count) {
    const auto& sink = *static_cast<const std::function<bool(const void*, std::size_t)>*>(png_get_io_ptr(png));
    if (!sink(bytes, count)) png_error(png, "");
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
    explicit Encoder(Sink& sink)
        : png(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, JumpBack, IgnoreWarning)) {
        if (png != nullptr) info = png_create_info_struct(png);
        if (info == nullptr) {
            png_destroy_write_struct(&png, nullptr);
            throw std::bad_alloc();
        }
        png_set_write_fn(png, &sink, WriteBytes, Flush);
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
    Write({picture.GetPixels(), picture.GetWidth(), picture.GetHeight(), 8, picture.GetSamples(), m_PixelSize});
}

void PngWriter::Write(const std::uint16_t* pixels, int width, int height) {
    Write({pixels, width, height, 16, 1, m_PixelSize});
}

void PngWriter::Write(const Image& image) {
    int error = 0;
    bool written = Encode(
        image,
        [&](const void* bytes, std::size_t count) {
            errno = 0;
            const bool taken = m_File.Write(bytes, count);
            error = errno;
            return taken;
        },
        m_Watch);
    if (written) {
        errno = 0;
        written = m_File.Close();
        error = errno;
    }
    if (!written) throw Error(ErrorKind::Disk, "cannot write " + m_Path + ": " + SystemText(error)).InFile(m_Path);
}

std::string PngWriter::Encode(const Picture& picture, const Watch& watch) {
    std::string bytes;
    std::exception_ptr failure;  // which must not pass through frames of C
    const auto take = [&](const void* from, std::size_t count) {
        try {
            bytes.append(static_cast<const char*>(from), count);
        } catch (...) {
            failure = std::current_exception();
        }
        return failure == nullptr;
    };
    const Image image{picture.GetPixels(), picture.GetWidth(), picture.GetHeight(), 8, picture.GetSamples(), 0};
    const bool encoded = Encode(image, take, watch);
    if (failure != nullptr) std::rethrow_exception(failure);
    if (!encoded) throw std::bad_alloc();
    return bytes;
}

bool PngWriter::Encode(const Image& image, Sink sink, const Watch& watch) {
    const double perMetre = image.pixelSize > 0 ? std::round(1000 / image.pixelSize) : 0;
    const bool hasSize = perMetre <= std::numeric_limits<std::int32_t>::max();
    const std::size_t rowBytes =
        static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.bits / 8 * image.samples);
    const auto* rows = static_cast<const unsigned char*>(image.pixels);
    Encoder encoder(sink);
    bool written = encoder.Begin(static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height),
                                 image.bits, image.samples == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                                 hasSize ? static_cast<png_uint_32>(perMetre) : 0);
    for (int row = 0; written && row < image.height; row += kBand) {
        watch.StopIfAsked();
        const int count = std::min(kBand, image.height - row);
        written = encoder.WriteRows(rows + static_cast<std::size_t>(row) * rowBytes, count, rowBytes);
    }
    return written && encoder.End();
}

}  // namespace korvane
