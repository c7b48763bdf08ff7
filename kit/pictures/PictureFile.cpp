#include "PictureFile.h"

#include "../core/Error.h"
#include "JpegWriter.h"
#include "PngWriter.h"
#include "TiffWriter.h"

#include <algorithm>
#include <cctype>

namespace korvane {

std::string NumberForName(int number) {
    const std::string digits = std::to_string(number);
    return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

std::string PictureFile::Begin() {
    std::string target = m_Files.Begin(m_Path);
    if (target.empty()) m_Files.ThrowFailure();
    return target;
}

bool PictureFile::IsJpeg(const std::string& path) {
    std::string ending = path.substr(std::min(path.rfind('.'), path.size()));
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return ending == ".jpg" || ending == ".jpeg";
}

void PictureFile::Write(const Picture& picture) {
    const std::string target = Begin();
    if (IsJpeg(m_Path)) {
        WriteJpeg(picture, target, m_Watch);
        return;
    }
    PngWriter png(target, m_Watch);
    png.SetPixelSize(m_PixelSize);
    png.Write(picture);
}

void PictureFile::Write(const std::vector<std::uint16_t>& values, int width, int height) {
    if (IsJpeg(m_Path)) throw Error(ErrorKind::WrongArgument, "a JPEG file has no 16 bits: name a PNG file");
    PngWriter png(Begin(), m_Watch);
    png.SetPixelSize(m_PixelSize);
    png.Write(values.data(), width, height);
}

void PictureFile::Write(const std::vector<float>& values, int width, int height) {
    WriteTiff(values, width, height, m_PixelSize, Begin(), m_Watch);
}

}  // namespace korvane
