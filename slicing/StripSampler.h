// Samples the rows of a picture in the order in which memory gives their voxels soonest.
#pragma once

#include "SliceKernels.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace korvane_detail {

/// A run of samples, and where in the picture its first one goes.
struct SliceStrip {
    SliceRun m_Run;
    int m_Row;
    int m_Column;

    int GetEnd() const { return m_Column + m_Run.m_Count; }
    SliceStrip GetPart(int begin, int end) const {
        SliceStrip part = *this;
        part.m_Run.Skip(begin - m_Column);
        part.m_Run.m_Count = end - begin;
        part.m_Column = begin;
        return part;
    }
};

/// Every sample depends on its own position alone, so the order is free. Where rows of the picture run across the planes of
/// the volume and columns do not, eight rows are sampled side by side; else rows are sampled in tiles. Both ask for voxels
/// some way ahead.
class StripSampler {
public:
    /// Where the samples of a part of a strip are to go, and what becomes of them there. Samples are as `IsSampledInFloat` says.
    struct Sink {
        std::function<void*(const SliceStrip& part)> m_Room;  ///< none: they are wanted in `m_Take` alone
        std::function<void(const SliceStrip& part, const void* samples)> m_Take;
    };

    /// `view` is kept.
    void SetKernel(const SliceView& view, Sampling sampling, bool wide);
    /// Steps from sample to sample along and across the strips, in voxels of each axis.
    void SetSteps(const double (&along)[3], const double (&across)[3]);

    /// Strips come row by row. Each of their samples is taken once.
    void Sample(const std::vector<SliceStrip>& strips, const Sink& sink);

private:
    void SampleStrip(const SliceStrip& strip, int begin, int end, const Sink& sink);
    void SampleInTiles(const Sink& sink);
    void SampleSideBySide(const Sink& sink);
    void SampleGroup(const SliceStrip* group, const Sink& sink);
    void SampleAbreast(const SliceStrip* group, int begin, int end, const Sink& sink);
    void* GetRoom(const SliceStrip& part, const Sink& sink) { return sink.m_Room ? sink.m_Room(part) : m_Samples; }
    void PickLane(int lane, int count, void* out) const;

    const SliceView* m_pView = nullptr;
    Sampling m_Sampling = Sampling::kLinear;
    bool m_bWide = false;
    SliceKernel m_Kernel = nullptr;
    AbreastKernel m_Abreast = nullptr;
    bool m_bAbreast = false;
    std::ptrdiff_t m_AheadAlong = 0;
    std::ptrdiff_t m_AheadAcross = 0;
    std::vector<SliceStrip> m_Crossing;
    static constexpr int kTile = 128;  // samples along a strip
    alignas(32) unsigned char m_Samples[kLongestRun * sizeof(double)];
    alignas(32) unsigned char m_Lanes[kTile * kAbreast * sizeof(double)];
};

}  // namespace korvane_detail
