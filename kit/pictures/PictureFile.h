// Pictures as files, by the ending of their names.
#pragma once

#include "../core/ExportFiles.h"
#include "Picture.h"
#include "Slice.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// At least four digits, so that names sort by number.
std::string NumberForName(int number);

/// Throws `Error` of kind `WrongArgument` for a name that ends as those of another kind of file do (.bmp, .tif, .dcm ...),
/// and for a format that does not hold the values asked for: what `PictureFile` would throw when all is drawn.
void CheckPictureName(const std::string& path, const SliceOptions& options);

/// Writes into a job's files. `pixelSize`: millimetres, for programs that print pictures at their size; 0 for none.
class PictureFile {
public:
    PictureFile(ExportFiles& files, const std::string& path, double pixelSize, const Watch& watch)
        : m_Files(files), m_Path(path), m_PixelSize(pixelSize), m_Watch(watch) {}

    /// Takes the place of the file in the order of outputs; a `Write` does so where that was not done. Throws `Error`.
    void Begin();

    // Of different files, on different threads, each after its `Begin`:
    /// A JPEG file where the name ends in .jpg or .jpeg, else a PNG file. Throws `Error`.
    void Write(const Picture& picture);
    /// 16 bits of grey, which PNG alone holds here.
    void Write(const std::vector<std::uint16_t>& values, int width, int height);
    /// 32-bit floating point: a TIFF file, whatever its name. Throws `Error` of kind `Unsupported` where this build has none.
    void Write(const std::vector<float>& values, int width, int height);

private:
    const std::string& GetTarget();

    ExportFiles& m_Files;
    std::string m_Path;
    std::string m_Target;  // where it is written; "" before it is begun
    double m_PixelSize;
    Watch m_Watch;
};

}  // namespace korvane
