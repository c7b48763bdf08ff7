#include "KeptLayers.h"

#include "SlabLayers.h"
#include "base/Integer.h"

#include <algorithm>
#include <cmath>

namespace korvane_detail {

bool KeptLayers::Form::operator==(const Form& other) const {
    const bool samePadding =
        IsPadded() == other.IsPadded() &&
        (!IsPadded() || (m_Padding.m_Low == other.m_Padding.m_Low && m_Padding.m_High == other.m_Padding.m_High));
    return m_pVolume == other.m_pVolume && m_Sampling == other.m_Sampling && samePadding && m_Width == other.m_Width &&
           m_Height == other.m_Height && m_Layers == other.m_Layers && m_SampleBytes == other.m_SampleBytes;
}

/// In double: what is too much may be beyond a size_t.
double KeptLayers::CountBytes(const Form& form) {
    const double rows = static_cast<double>(form.m_Layers) * form.m_Height;
    const double pixel = static_cast<double>(form.m_SampleBytes) + (form.IsPadded() ? 1 : 0);
    const double strips = form.m_Width / static_cast<double>(kLongestRun) + 1;
    return rows * (form.m_Width * pixel + sizeof(Row) + strips * sizeof(SliceStrip));
}

// Where the plane moved along its normal the ring is turned, so that layers meet those which lay where they lie. This is a
// guess: what is taken is what lies at the same positions.
void KeptLayers::Prepare(const Form& form, const std::array<double, 3>& centre, const std::array<double, 3>& normal,
                         double step) {
    if (!(form == m_Form)) {
        *this = KeptLayers();
        const auto rows = static_cast<std::size_t>(form.m_Layers) * static_cast<std::size_t>(form.m_Height);
        m_Rows.resize(rows);
        m_Samples.resize(rows * static_cast<std::size_t>(form.m_Width) * form.m_SampleBytes);
        m_Measured.resize(form.IsPadded() ? rows * static_cast<std::size_t>(form.m_Width) : 0);
        m_Form = form;
    } else {
        double moved = 0;
        for (std::size_t axis = 0; axis < 3; ++axis) moved += (centre[axis] - m_Centre[axis]) * normal[axis];
        const double steps = std::fmod(std::round(moved / step), form.m_Layers);
        const int turn = std::isfinite(steps) ? platform::TruncateToInt32(steps) : 0;
        m_nFirst = (m_nFirst + turn + form.m_Layers) % form.m_Layers;
    }
    m_Centre = centre;
    m_Step = step;
}

std::size_t KeptLayers::CountRows(bool kept) const {
    return static_cast<std::size_t>(
        std::count_if(m_Rows.begin(), m_Rows.end(), [kept](const Row& row) { return row.m_bKept == kept; }));
}

bool AreSame(const SliceStrip* strips, std::size_t count, const std::vector<SliceStrip>& kept) {
    return std::equal(strips, strips + count, kept.begin(), kept.end(), [](const SliceStrip& a, const SliceStrip& b) {
        return a.m_Column == b.m_Column && a.m_Run.m_Count == b.m_Run.m_Count &&
               std::equal(a.m_Run.m_Start, a.m_Run.m_Start + 3, b.m_Run.m_Start) &&
               std::equal(a.m_Run.m_Step, a.m_Run.m_Step + 3, b.m_Run.m_Step);
    });
}

}  // namespace korvane_detail

SlabLayers::SlabLayers(std::size_t most) : m_nMost(most), m_pKept(std::make_unique<korvane_detail::KeptLayers>()) {}

SlabLayers::~SlabLayers() = default;

std::size_t SlabLayers::GetBytes() const {
    return static_cast<std::size_t>(korvane_detail::KeptLayers::CountBytes(m_pKept->GetForm()));
}

double SlabLayers::GetStep() const {
    return m_pKept->GetStep();
}

int SlabLayers::GetCount() const {
    return m_pKept->GetForm().m_Layers;
}

std::size_t SlabLayers::GetRowsKept() const {
    return m_pKept->CountRows(true);
}

std::size_t SlabLayers::GetRowsSampled() const {
    return m_pKept->CountRows(false);
}

void SlabLayers::Clear() {
    *m_pKept = korvane_detail::KeptLayers();
}
