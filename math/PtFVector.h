// Counted handle on a vector.
#pragma once

#include "FVector.h"

/// Shares a heap vector: the last handle that lets go of it destroys it. Empty handles point to null.
///
/// A vector that was counted by `FVector::operator&` stays alive when its handles go:
///
///     FVector local(3);
///     PtFVector handle(&local);  // two references: that of `operator&` is never dropped
///
/// The count is in the vector and is not atomic.
class KORVANE_API PtFVector {
public:
    PtFVector();
    PtFVector(FVector* vector);
    PtFVector(const PtFVector& other);
    ~PtFVector();

    PtFVector& operator=(FVector* vector);
    PtFVector& operator=(const PtFVector& other);

    FVector* operator->() const;
    /// The element by value; 0 from an empty handle and outside the vector.
    float operator[](int index) const;

private:
    void assign(FVector* vector);

    FVector* m_pVector = nullptr;
};
