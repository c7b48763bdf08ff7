#include "RadiologicalView.h"

#include "PatientFrame.h"
#include "ViewAxes.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using korvane_detail::PatientFrame;
using Order = std::array<int, 3>;

// The volume axis nearest to each patient axis, no volume axis twice.
Order FindNearestAxes(const PatientFrame& frame) {
    Order order = {0, 1, 2};
    Order best = order;
    double largest = 0;
    do {
        double sum = 0;
        for (std::size_t patient = 0; patient < 3; ++patient) {
            sum += std::fabs(frame.GetAxis(order[patient])[patient]);
        }
        if (sum > largest) {
            largest = sum;
            best = order;
        }
    } while (std::next_permutation(order.begin(), order.end()));
    return best;
}

}  // namespace

bool RadiologicalView(CVolume& volume, DcmOrientation::OrthoPlane ortho, RawView& view) {
    // Where a picture's two axes should run: x to the patient's left, y to the back, z to the head.
    struct Wanted {
        VolumePlane m_Default;
        std::size_t m_Horizontal;  // growing
        std::size_t m_Vertical;
        double m_Down;  // +1 growing, -1 falling
    };
    static constexpr Wanted kWanted[3] = {{VP_XY, 0, 1, 1}, {VP_XZ, 0, 2, -1}, {VP_YZ, 1, 2, -1}};
    view = RawView();
    if (ortho < DcmOrientation::OP_AXIAL || ortho > DcmOrientation::OP_SAGITTAL) {
        return false;
    }
    const Wanted& wanted = kWanted[ortho];
    view.m_Plane = wanted.m_Default;
    PatientFrame frame;
    if (!frame.Read(volume)) {
        return false;
    }
    const Order axes = FindNearestAxes(frame);
    const int horizontal = axes[wanted.m_Horizontal];
    const int vertical = axes[wanted.m_Vertical];
    view.m_bFlip1 = frame.GetAxis(horizontal)[wanted.m_Horizontal] < 0;
    view.m_bFlip2 = frame.GetAxis(vertical)[wanted.m_Vertical] * wanted.m_Down < 0;
    return FindViewPlane(horizontal, vertical, view.m_Plane);
}
