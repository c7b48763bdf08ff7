// One picture after the other through a volume that stays: for views that follow the mouse.
#pragma once

#include "../core/KitExport.h"
#include "Slice.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace korvane {

class Volume;

struct SlicerOptions {
    std::size_t slabMemory = std::size_t{256} << 20;  ///< bytes that kept layers of slabs may take; see `Slicer`
};

/// Real values of a plane, row after row, as `SaveSlices` writes them with `SliceOptions::values`.
struct SliceValues {
    int width = 0;
    int height = 0;
    std::vector<float> values;
    SliceReport report;  ///< without files
};

/// What a slicer holds, and what the last picture of a slab cost.
struct SlicerFacts {
    std::size_t copyBytes =
        0;  ///< of voxels that were read once more, because the volume's own cannot be sliced; see `Slice`
    std::size_t layerBytes = 0;  ///< of kept layers
    /// Millimetres between the layers of the last slab: a plane that moves by a multiple of it finds its layers. 0 where none
    /// were kept.
    double slabStep = 0;
    std::size_t rowsKept = 0;  ///< rows of layers that were there already
    std::size_t rowsSampled = 0;
};

/// Pictures and values of planes, with the numbers of `Slice` to the bit. What that finds out for every picture, this finds once: a
/// form of the voxels that can be sliced, and the fitting window.
///
///     korvane::Slicer slicer(korvane::Load(series));
///     korvane::SliceOptions options;
///     options.view.reset();
///     options.plane = {.point = {{0, 0, 0}}, .normal = {0, -1, 1}};
///     options.frame = {{512, 512}};
///     options.window = korvane::Window{40, 400};
///     options.shift += 1;  // as the wheel turns
///     Show(slicer.Draw(options).picture);
///
/// SLABS. Layers of a slab are kept, those of each view and of the last plane of another direction. When the plane moves along its normal, by
/// `SliceOptions::shift` or a view's index, layers that lie where others lay are not sampled again, and all are put together
/// in the same order: the picture is that of a new slab to the bit. `SlicerFacts::slabStep` is the distance that keeps most.
/// A slab that needs more than `SlicerOptions::slabMemory` is sampled as a whole each time.
///
/// THREADS. A picture is made on all cores (`SliceOptions::jobs`); threads for it stay between pictures, and end when no more are
/// asked for. Several threads may ask one slicer: they are served one after the other. Slicers, and calls of `Slice`, may work on
/// one volume at the same time. Its voxels are read and must stay as they are: let no other thread export or end it meanwhile.
///
/// WATCHER. What is odd about the series and not shown, a slicer tells with the first picture that has a watcher.
class KORVANE_KIT Slicer {
public:
    /// The slicer keeps the volume alive. Throws `Error` of kind `WrongArgument` without one, and as `Slice`.
    explicit Slicer(std::shared_ptr<const Volume> volume, const SlicerOptions& options = {});
    explicit Slicer(Volume&& volume, const SlicerOptions& options = {});
    Slicer(Slicer&& other) noexcept;
    Slicer& operator=(Slicer&& other) noexcept;
    Slicer(const Slicer&) = delete;
    Slicer& operator=(const Slicer&) = delete;
    ~Slicer();

    const Volume& GetVolume() const;

    /// One picture. Throws as `Slice`, and `WrongArgument` for options of several pictures, of stored images or values, and of
    /// uptake that the volume was not loaded with.
    SlicePicture Draw(const SliceOptions& options = {});
    SliceValues TakeValues(const SliceOptions& options = {});

    SlicerFacts GetFacts() const;

private:
    class Parts;

    std::unique_ptr<Parts> m_pParts;
};

}  // namespace korvane
