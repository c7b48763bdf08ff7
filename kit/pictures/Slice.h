// Pictures of planes through a series.
#pragma once

#include "../core/ExportOutput.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "Picture.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

class Series;
class Volume;

/// A radiological view: the patient's right on the left, head up; front up in axial, left in sagittal pictures.
enum class View { Axial, Coronal, Sagittal };

/// The words "axial", "coronal", "sagittal".
KORVANE_KIT const char* WordOf(View view);
/// The views by these words.
KORVANE_KIT const std::map<std::string, View>& ViewWords();

/// How a value between voxels is made: that of the nearest one, trilinear, or linear in the plane with smoothed weights
/// between planes.
enum class Interpolation { Nearest, Linear, Shaped };

/// "nearest", "linear", "shaped".
KORVANE_KIT const std::map<std::string, Interpolation>& InterpolationWords();

/// What is taken of the values across a slab.
enum class SlabMode { Mean, Maximum, Minimum };

/// "mean", "maximum" or "max", "minimum" or "min".
KORVANE_KIT const std::map<std::string, SlabMode>& SlabModeWords();

/// A plane through a point, or through the volume's middle, in patient millimetres (LPS: x to the left, y to the back, z to
/// the head). The sign of the normal says nothing: by the patient plane that it is nearest to, a plane is seen from the
/// feet (axial), from the front (coronal) or from the patient's left (sagittal), as in the views. `up` only turns the
/// picture; without it the front is up in axial pictures, the head in others.
struct PatientPlane {
    std::optional<std::array<double, 3>> point{};
    std::array<double, 3> normal{};
    std::optional<std::array<double, 3>> up{};
};

/// Grey values as users and data sets state them, over rescaled values (PS3.3 C.11.2.1.2): centre and width.
struct Window {
    double centre = 0;
    double width = 1;  ///< at least 1
};

/// Which pictures, and what they look like. The defaults give the middle axial plane.
struct SliceOptions {
    enum class Pictures {
        One,    ///< the plane, or the view's plane `index`
        All,    ///< all of a view, or of a stack of planes, files in the folder `output`
        Sheet,  ///< the same, small, on one picture
    };

    std::optional<View> view = View::Axial;  ///< none: `plane`
    Pictures pictures = Pictures::One;
    std::optional<int> index{};  ///< along the volume's axis, from 0; none: the middle one
    PatientPlane plane{};
    /// A stack of planes, parallel to `plane`, which is the first: each next one lies `step` millimetres further along the
    /// plane's normal as it was given (against it where negative). All pictures are as large as the largest cut.
    int count = 1;
    double step = 0;
    /// Millimetres that `plane` is moved along its normal as it was given, before anything else.
    double shift = 0;
    std::optional<Window>
        window{};  ///< none: that of the series, else from the 1st to the 99th percentile of the values
    /// In place of `window`: the one of the series, or its table, that has this explanation (0028,1055), (0028,3003).
    std::string windowName{};
    Interpolation interpolation = Interpolation::Linear;
    /// Millimetres across the plane that are taken together. Pixel Padding (0028,0120) is left out, which the watcher is told;
    /// a pixel of nothing else is black.
    double slab = 0;
    SlabMode slabMode = SlabMode::Mean;
    bool uptake = false;   ///< standardized uptake values, see `LoadOptions`; not of stored images
    double pixelSize = 0;  ///< millimetres; 0: the smaller of the voxel's two sides
    /// Width and height of the picture in pixels of `pixelSize`, the plane's point (of a view the middle of its plane) in the middle,
    /// whatever the cut through the volume is; none: as large as the cut. Not with `size`, `zoom` or a sheet.
    std::optional<std::array<int, 2>> frame{};
    int size = 0;           ///< pixels of the longer side; 0: as many as `pixelSize` and `zoom` give
    double zoom = 0;        ///< times as large; 0: as it is, but small pictures grow when they are annotated
    bool annotate = false;  ///< directions at the edges, and a scale bar where the size of pixels is known
    bool raw16 = false;     ///< stored values in 16 bits, signed ones + 32768, in place of a window
    bool values = false;    ///< real values (after rescale) as 32-bit floating point in TIFF files
    /// Each image as it is stored, see Draw.h, in place of planes through a volume: `index` counts images, `All` and
    /// `Sheet` take all of them. `view`, `plane`, `interpolation`, slabs and `pixelSize` say nothing then.
    bool stored = false;
    unsigned jobs = 0;  ///< threads, for the rows of a picture or for several pictures; 0: one for each core
    Watcher* watcher = nullptr;
};

/// What pictures show.
struct SliceReport {
    std::vector<ExportOutput> files{};
    std::string what{};  ///< "axial plane 3 of 0 to 7"
    int width = 0;       ///< pixels; of one tile of a sheet
    int height = 0;
    double pixelSize = 0;  ///< millimetres; 0 where the series does not say how large its pixels are
    std::string
        right{};  ///< patient directions of the right and the lower edge (letters of L R P A H F); "" if unknown
    std::string below{};
    std::string values{};  ///< "window 40,400 of the series": where grey values come from
    /// Middle of the picture in patient millimetres (LPS); none of sheets, folders and stored images.
    std::optional<std::array<double, 3>> middle{};
};

/// A picture in memory, with what it shows.
struct SlicePicture {
    Picture picture;
    SliceReport report;  ///< without files
};

/// Draws one picture, or a sheet of all planes of a view. Throws `Error`: `WrongArgument` for a plane that is not there, for
/// directions that define none, and for pictures that are several or have 16 bits (see `SaveSlices`); `Unsupported` for
/// voxels that are no grey values, and where the plane does not meet the volume; `Stopped`.
///
///     korvane::SliceOptions options;
///     options.view.reset();
///     options.plane.normal = {0, -1, 1};
///     const korvane::SlicePicture oblique = korvane::Slice(volume, options);
///     korvane::SavePicture(oblique.picture, "oblique.png", oblique.report.pixelSize);
///
/// A volume whose planes have rescales of their own, or whose voxels the module has no form for, is read from its files once
/// more, and brought to one scale. One of several times is refused (`WrongArgument`): load the time that is meant.
KORVANE_KIT SlicePicture Slice(const Volume& volume, const SliceOptions& options = {});

/// All pictures of a view, or of a stack of planes, in its order. Throws as `Slice`.
///
///     options.count = 20;
///     options.step = 1.5;
///     for (const korvane::SlicePicture& picture : korvane::SliceStack(volume, options)) ...
KORVANE_KIT std::vector<SlicePicture> SliceStack(const Volume& volume, const SliceOptions& options);

/// Writes pictures as PNG files, or as JPEG files where `output` ends in .jpg, all of them, whole, or none. `output`: a file, or the folder for all pictures of a view,
/// which is made where it is not there. Throws as `Slice`, and `Disk`.
KORVANE_KIT SliceReport SaveSlices(const Volume& volume, const std::string& output, const SliceOptions& options = {});
/// The same of a series, of which volume `volume` is read (from 1; 0: the first, which the watcher is told where there are
/// several). What is odd about the series is told to the watcher, and what it asks of pictures that these do not show.
KORVANE_KIT SliceReport SaveSlices(const Series& series, int volume, const std::string& output,
                                   const SliceOptions& options = {});

/// Writes a picture as a PNG file, or as a JPEG file where the name ends in .jpg, whole or not at all. `pixelSize`: millimetres, for programs that print pictures at their
/// size; 0 for none. Throws `Error` of kind `Disk`.
KORVANE_KIT void SavePicture(const Picture& picture, const std::string& path, double pixelSize = 0);

/// Lines for people, without line ends; not escaped for printing.
KORVANE_KIT std::vector<std::string> Describe(const SliceReport& report);

}  // namespace korvane
