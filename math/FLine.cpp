#include "FLine.h"

#include "Double3.h"
#include "FPlane.h"
#include "FSegment.h"
#include "Intersect.h"

using korvane_detail::GetElement;

FLine::FLine() : m_Rows(2, 3) {
    m_Rows.zero();
}

FLine::FLine(const FPoint& p0, const FVector& direction) {
    Init(p0, direction);
}

FLine::FLine(const FPoint& a, const FPoint& b) {
    Init(a, b);
}

FLine::FLine(const FPlane& a, const FPlane& b) : FLine() {
    Init(a, b);
}

FLine::FLine(const FLine& other) = default;

FLine::~FLine() = default;

FLine& FLine::operator=(const FLine& other) = default;

void FLine::Init(const FPoint& p0, const FVector& direction) {
    m_Rows.size(2, 3);
    for (int i = 0; i < 3; ++i) {
        m_Rows[0][i] = GetElement(p0, i);
        m_Rows[1][i] = GetElement(direction, i);
    }
}

void FLine::Init(const FPoint& a, const FPoint& b) {
    Init(a, b - a);
}

void FLine::Init(const FPlane& a, const FPlane& b) {
    bool parallel = false;
    const FSegment common = Intersect(a, b, parallel);
    if (!parallel) Init(common);
}

void FLine::Init(const FLine& other) {
    m_Rows = other.m_Rows;
}

FPoint FLine::GetP0() const {
    return {m_Rows[0][0], m_Rows[0][1], m_Rows[0][2]};
}

FPoint FLine::GetP1() const {
    return GetP0() + GetDirection();
}

FVector FLine::GetDirection() const {
    return FVector(m_Rows[1], 3);
}

FVector FLine::GetVersor() const {
    FVector versor = GetDirection();
    versor.normalize();
    return versor;
}

bool FLine::IsPointOn(const FPoint& p) const {
    const FVector q = (p - GetP0()) / GetVersor();
    return 3.0 * q[0] * q[0] < 0.001;
}
