// Pictures as PNG files.
#pragma once

#include "../core/Watch.h"
#include "Picture.h"

#include "../../platform/File.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace korvane {

/// Writes one file.
///
///     PngWriter png(path);
///     png.SetPixelSize(0.5);
///     png.Write(picture);
class PngWriter {
public:
    /// Creates the file. Throws `Error`.
    explicit PngWriter(const std::string& path, const Watch& watch = {});

    /// Millimetres, for programs that print pictures at their size; 0 for none.
    void SetPixelSize(double millimetres) { m_PixelSize = millimetres; }

    // Rows from the top, without padding. Throw `Error`.
    void Write(const Picture& picture);
    void Write(const std::uint16_t* pixels, int width, int height);

    /// The bytes of such a file, without one. Throws `Error` of kind `Stopped`.
    static std::string Encode(const Picture& picture, const Watch& watch = {});

private:
    struct Encoder;
    /// Takes bytes; false where it cannot.
    using Sink = std::function<bool(const void*, std::size_t)>;
    struct Image {
        const void* pixels;
        int width;
        int height;
        int bits;
        int samples;
        double pixelSize;
    };

    void Write(const Image& image);
    static bool Encode(const Image& image, Sink sink, const Watch& watch);

    std::string m_Path;
    Watch m_Watch;
    platform::OutputFile m_File;
    double m_PixelSize = 0;
};

}  // namespace korvane
