#include "PtFVector.h"

PtFVector::PtFVector() = default;

PtFVector::PtFVector(FVector* vector) {
    assign(vector);
}

PtFVector::PtFVector(const PtFVector& other) {
    assign(other.m_pVector);
}

PtFVector::~PtFVector() {
    assign(nullptr);
}

PtFVector& PtFVector::operator=(FVector* vector) {
    assign(vector);
    return *this;
}

PtFVector& PtFVector::operator=(const PtFVector& other) {
    assign(other.m_pVector);
    return *this;
}

FVector* PtFVector::operator->() const {
    return m_pVector;
}

float PtFVector::operator[](int index) const {
    if (m_pVector == nullptr || index < 0 || index >= m_pVector->dim()) return 0.0F;
    return m_pVector->GetPointer()[index];
}

// The new target is counted before the old one is let go: they may be the same.
void PtFVector::assign(FVector* vector) {
    if (vector != nullptr) ++vector->m_nRef;
    FVector* const old = m_pVector;
    m_pVector = vector;
    if (old != nullptr && --old->m_nRef == 0) delete old;
}
