#include "FSegment.h"

#include "Double3.h"
#include "FPlane.h"

FSegment::FSegment() = default;

FSegment::FSegment(const FPoint& a, const FPoint& b) : FLine(a, b) {}

FSegment::FSegment(const FPoint& p, const FVector& v) : FLine(p, v) {}

FSegment::FSegment(const FPlane& a, const FPlane& b) : FLine(a, b) {}

FSegment::FSegment(const FSegment& other) = default;

FSegment::~FSegment() = default;

FSegment& FSegment::operator=(const FSegment& other) = default;

float FSegment::mod() const {
    return (GetP0() - GetDirection()).mod();
}

FPoint FSegment::GetMid() const {
    const float* const a = m_Rows[0];
    const float* const b = m_Rows[1];
    const auto middle = [a, b](int i) { return static_cast<float>((static_cast<double>(a[i]) + b[i]) * 0.5); };
    return {middle(0), middle(1), middle(2)};
}

bool FSegment::IsPointOn(const FVector& p) const {
    const FPoint a = GetP0();
    const FPoint b = GetP1();
    for (int i = 0; i < 3; ++i) {
        if (!OnSegment1D(a[i], b[i], korvane_detail::GetElement(p, i))) return false;
    }
    return true;
}

bool FSegment::OnSegment1D(float a, float b, float x) {
    return (a <= x && x <= b) || (b <= x && x <= a);
}
