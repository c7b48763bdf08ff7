// Moves the rows of planes that lie sideways of each other onto one straight grid.
#pragma once

#include "../volume/CVolume.h"
#include "StraightStack.h"
#include "ZSampler.h"

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace korvane_detail {

/// Calls `work` for ranges of planes, each of 0 to `planes` once.
using PlaneWork = std::function<void(int first, int end)>;
using PlaneRun = std::function<void(int planes, const PlaneWork& work)>;
/// One that calls it for all of them at once.
PlaneRun RunOnThisThread();

/// The lowest voxel of a volume that has pixels; 0 where there is none but NaN and infinity, or where `stop` said so.
double FindLowestVoxel(CVolume& volume, const std::function<bool()>& stop = {},
                       const PlaneRun& run = RunOnThisThread());

struct VolumeDeleter {
    void operator()(CVolume* volume) const { volume->Delete(); }
};
using VolumePointer = std::unique_ptr<CVolume, VolumeDeleter>;

/// The columns and rows of a straight stack: as many as hold every voxel of every plane, on the grid of the first.
struct StraightCanvas {
    int m_Count[2] = {0, 0};
    double m_First[2] = {0, 0};   ///< of the first column and row, millimetres from the volume's origin
    double m_Extent[2] = {0, 0};  ///< largest distance of two planes sideways, millimetres
};

/// The volume has planes, pixels, a known type and positive spacings; it and the sampler must outlive the object.
class StackStraightener {
public:
    StackStraightener(CVolume& source, const ZSampler& sampler);

    const StraightCanvas& GetCanvas() const { return m_Canvas; }

    /// One plane for each sample, at its z: voxels are linear in x and y within the planes, and mixed across two planes by the
    /// sample's weight. Voxels without data are `fill`, held within the range of the type. Null where it was stopped, by an answer of
    /// the options' question that stays so. `run` may call from several threads. Throws `std::bad_alloc`.
    VolumePointer Make(double fill, const StraightenOptions& options, const PlaneRun& run = RunOnThisThread());

    /// Of the last `Make`: voxels without data, and the value that they have.
    unsigned long long CountFilled() const { return m_Filled; }
    double GetFill() const { return m_Fill; }

private:
    /// Column or row i of the canvas lies at i + m_Whole + m_Part of the source's.
    struct Shift {
        int m_Whole;
        double m_Part;
        int m_Begin;  ///< of the canvas, where the source has data
        int m_End;
    };

    /// What one thread has at hand, and what it met.
    struct Bench {
        std::vector<unsigned char> m_Memory;  // of one mixed row and one moved row, as floats or doubles
        std::vector<unsigned char> m_Padded;  // of one row: voxels that padding goes into
        std::size_t m_nUnasked = 0;           // voxels since the last question whether to stop
        unsigned long long m_Filled = 0;
        bool m_bPaddingFilled = false;
    };

    Shift FindShift(int axis, double offset) const;
    void PlaceResult(CVolume& result) const;
    bool IsStopped(std::size_t voxels, Bench& bench) const;
    void FillPlanes(CVolume& result, int first, int end);
    bool FillPlane(const ZSample& sample, unsigned char* out, Bench& bench) const;
    template <typename Pixel, typename Number>
    bool FillPlaneAs(const ZSample& sample, unsigned char* out, Bench& bench) const;
    template <typename Pixel>
    void FillPadded(const ZSample& sample, int row, bool isBetweenRows, bool isBetweenColumns, std::size_t from,
                    std::size_t count, unsigned char* out, Bench& bench) const;
    template <typename Pixel, typename Number>
    void MixRow(const ZSample& sample, int row, double part, Bench& bench) const;

    CVolume& m_Source;
    const std::vector<ZSample>& m_Samples;
    int m_Count[2] = {0, 0};
    double m_Space[2] = {1, 1};
    StraightCanvas m_Canvas;
    unsigned char m_FillPixel[4] = {};
    double m_Fill = 0;
    const StraightenOptions* m_pOptions = nullptr;  // of `Make`
    std::atomic<unsigned long long> m_Filled = 0;   // voxels without data
    std::atomic<bool> m_bPaddingFilled = false;     // others have the fill value, for padding was in them
    std::atomic<bool> m_bStopped = false;
};

}  // namespace korvane_detail
