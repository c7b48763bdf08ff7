#include "TiffWriter.h"

#include "../core/Error.h"

#ifdef KORVANE_KIT_TIFF

#include "../../platform/File.h"
#include "../core/LateLibrary.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <tiffio.h>

namespace korvane {

namespace {

// Calls below find these in place of the library's own.
constinit const LateLibrary kTiff(KORVANE_KIT_TIFF);
KORVANE_LATE(kTiff, TIFFClientOpen);
KORVANE_LATE(kTiff, TIFFClose);
KORVANE_LATE(kTiff, TIFFFlush);
KORVANE_LATE(kTiff, TIFFSetField);
KORVANE_LATE(kTiff, TIFFWriteScanline);

constexpr int kBand = 64;  // rows of a strip, and between two looks at the watcher

/// libtiff's file, in memory.
class Bytes {
public:
    static tmsize_t Write(thandle_t handle, void* data, tmsize_t size) {
        Bytes& self = *static_cast<Bytes*>(handle);
        const auto count = static_cast<std::size_t>(size);
        self.m_Bytes.resize(std::max(self.m_Bytes.size(), self.m_At + count));
        std::memcpy(self.m_Bytes.data() + self.m_At, data, count);
        self.m_At += count;
        return size;
    }
    static tmsize_t Read(thandle_t handle, void* data, tmsize_t size) {
        Bytes& self = *static_cast<Bytes*>(handle);
        const std::size_t left = self.m_Bytes.size() - std::min(self.m_At, self.m_Bytes.size());
        const std::size_t count = std::min(left, static_cast<std::size_t>(size));
        if (count > 0) std::memcpy(data, self.m_Bytes.data() + self.m_At, count);
        self.m_At += count;
        return static_cast<tmsize_t>(count);
    }
    static toff_t Seek(thandle_t handle, toff_t offset, int whence) {
        Bytes& self = *static_cast<Bytes*>(handle);
        const std::size_t from = whence == SEEK_CUR ? self.m_At : whence == SEEK_END ? self.m_Bytes.size() : 0;
        self.m_At = from + static_cast<std::size_t>(offset);
        return self.m_At;
    }
    static int Close(thandle_t /*handle*/) { return 0; }
    static toff_t Size(thandle_t handle) { return static_cast<Bytes*>(handle)->m_Bytes.size(); }

    const std::vector<unsigned char>& Get() const { return m_Bytes; }

private:
    std::vector<unsigned char> m_Bytes;
    std::size_t m_At = 0;
};

struct Close {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

using Tiff = std::unique_ptr<TIFF, Close>;

void SetFields(TIFF* tiff, int width, int height, double pixelSize) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(height));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 32);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_FLOATINGPOINT);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, kBand);
    if (pixelSize <= 0) return;
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 10 / pixelSize);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 10 / pixelSize);
}

bool WriteRows(TIFF* tiff, const std::vector<float>& values, int width, int height, const Watch& watch) {
    std::vector<float> line(static_cast<std::size_t>(width));  // libtiff works on the memory that it is given
    for (int row = 0; row < height; ++row) {
        if (row % kBand == 0) watch.StopIfAsked();
        const auto first = values.begin() + static_cast<std::ptrdiff_t>(row) * width;
        std::copy(first, first + width, line.begin());
        if (TIFFWriteScanline(tiff, line.data(), static_cast<std::uint32_t>(row), 0) != 1) return false;
    }
    return true;
}

}  // namespace

void WriteTiff(const std::vector<float>& values, int width, int height, double pixelSize, const std::string& path,
               const Watch& watch) {
    Bytes bytes;
    Tiff tiff(TIFFClientOpen("", "wm", &bytes, Bytes::Read, Bytes::Write, Bytes::Seek, Bytes::Close, Bytes::Size,
                             nullptr, nullptr));
    bool written = tiff != nullptr;
    if (written) {
        SetFields(tiff.get(), width, height, pixelSize);
        written = WriteRows(tiff.get(), values, width, height, watch) && TIFFFlush(tiff.get()) == 1;
    }
    tiff.reset();
    if (!written) throw Error(ErrorKind::Unsupported, path + ": a TIFF file cannot hold these values").InFile(path);
    platform::OutputFile file;
    errno = 0;
    if (!file.Open(path.c_str()) || !file.Write(bytes.Get().data(), bytes.Get().size()) || !file.Close()) {
        throw Error(ErrorKind::Disk, "cannot write " + path + ": " + SystemText(errno)).InFile(path);
    }
}

}  // namespace korvane

#else

namespace korvane {

void WriteTiff(const std::vector<float>& /*values*/, int /*width*/, int /*height*/, double /*pixelSize*/,
               const std::string& /*path*/, const Watch& /*watch*/) {
    throw Error(ErrorKind::Unsupported, "this build writes no TIFF files: libtiff was not there");
}

}  // namespace korvane

#endif
