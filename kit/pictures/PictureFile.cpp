#include "PictureFile.h"

#include "../core/Error.h"
#include "JpegWriter.h"
#include "PngWriter.h"
#include "TiffWriter.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace korvane {

namespace {

/// A new format is a writer and a row of `kFormats`.
struct PictureFormat {
    std::string_view name;
    std::string_view endings;  // in small letters, each between blanks
    bool holds16Bits;
    void (*write)(const Picture& picture, const std::string& path, double pixelSize, const Watch& watch);
};

void WritePngPicture(const Picture& picture, const std::string& path, double pixelSize, const Watch& watch) {
    PngWriter png(path, watch);
    png.SetPixelSize(pixelSize);
    png.Write(picture);
}

void WriteJpegPicture(const Picture& picture, const std::string& path, double, const Watch& watch) {
    WriteJpeg(picture, path, watch);
}

// The first is that of names whose ending is none of a picture's.
constexpr PictureFormat kFormats[] = {{"PNG", " .png ", true, WritePngPicture},
                                      {"JPEG", " .jpg .jpeg ", false, WriteJpegPicture}};

// What others would take a file for by its name, and it would not be.
constexpr std::string_view kForeignEndings =
    " .bmp .gif .tif .tiff .webp .avif .heic .jp2 .pgm .ppm .pnm .svg .pdf .dcm .nii .raw ";

// With its dot, in small letters; "" where there is none.
std::string EndingOf(const std::string& path) {
    const std::string name = path.substr(path.find_last_of("/\\") + 1);
    std::string ending = name.substr(std::min(name.size(), name.rfind('.')));
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending;
}

const PictureFormat& FormatOf(const std::string& path) {
    const std::string ending = EndingOf(path);
    const std::string word = " " + ending + " ";
    std::string known;
    for (const PictureFormat& format : kFormats) {
        if (!ending.empty() && format.endings.find(word) != std::string_view::npos) return format;
        known += format.endings.substr(0, format.endings.size() - 1);
    }
    if (!ending.empty() && kForeignEndings.find(word) != std::string_view::npos) {
        throw Error(ErrorKind::WrongArgument, path + ": pictures are not written as " + ending + ", but as" + known)
            .InFile(path);
    }
    return kFormats[0];
}

void CheckHolds16Bits(const PictureFormat& format) {
    if (format.holds16Bits) return;
    throw Error(ErrorKind::WrongArgument, "a " + std::string(format.name) + " file has no 16 bits: name a PNG file");
}

}  // namespace

void CheckPictureName(const std::string& path, const SliceOptions& options) {
    if (options.values) return;  // TIFF, whatever its name
    const PictureFormat& format = FormatOf(path);
    if (options.raw16) CheckHolds16Bits(format);
}

std::string NumberForName(int number) {
    const std::string digits = std::to_string(number);
    return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

void PictureFile::Begin() {
    m_Target = m_Files.Begin(m_Path);
    if (m_Target.empty()) m_Files.ThrowFailure();
}

const std::string& PictureFile::GetTarget() {
    if (m_Target.empty()) Begin();
    return m_Target;
}

void PictureFile::Write(const Picture& picture) {
    const PictureFormat& format = FormatOf(m_Path);
    format.write(picture, GetTarget(), m_PixelSize, m_Watch);
}

void PictureFile::Write(const std::vector<std::uint16_t>& values, int width, int height) {
    CheckHolds16Bits(FormatOf(m_Path));
    PngWriter png(GetTarget(), m_Watch);
    png.SetPixelSize(m_PixelSize);
    png.Write(values.data(), width, height);
}

void PictureFile::Write(const std::vector<float>& values, int width, int height) {
    WriteTiff(values, width, height, m_PixelSize, GetTarget(), m_Watch);
}

}  // namespace korvane
