#include "StraightStack.h"

#include "ReformatSource.h"
#include "StackStraightener.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>

using namespace korvane_detail;

CVolume* StraightenStack(CVolume& source, const StraightenOptions& options, StraightenReport& report) {
    return StraightenStackInBlocks(source, options, report, RunOnThisThread());
}

CVolume* StraightenStackInBlocks(CVolume& source, const StraightenOptions& options, StraightenReport& report,
                                 const StraightenRun& run) {
    report = StraightenReport();
    try {
        ZSampler sampler;
        PatientFrame frame;
        if (const char* failure = ReadReformatSource(source, sampler, frame)) {
            report.m_Error = failure;
            return nullptr;
        }
        if (options.m_bEvenZ && !sampler.IsEven()) sampler.UseTable(source);
        StackStraightener straightener(source, sampler);
        // Once the answer was yes it stays so: half a search for the lowest voxel is none.
        std::atomic<bool> stopped = false;
        StraightenOptions stoppable = options;
        stoppable.m_Stop = [&] {
            if (!stopped && options.m_Stop && options.m_Stop()) stopped = true;
            return stopped.load();
        };
        const double fill = options.m_Fill ? *options.m_Fill : FindLowestVoxel(source, stoppable.m_Stop, run);
        VolumePointer straight = stopped ? nullptr : straightener.Make(fill, stoppable, run);
        if (straight == nullptr) {
            report.m_Error = "stopped";
            return nullptr;
        }
        report.m_Fill = straightener.GetFill();
        report.m_nFilled = straightener.CountFilled();
        std::copy_n(straightener.GetCanvas().m_Extent, 2, report.m_Shift);
        return straight.release();
    } catch (const std::bad_alloc&) {
        report.m_Error = "out of memory";
    } catch (const std::length_error&) {
        report.m_Error = "volume too long for its voxel size";
    }
    return nullptr;
}
