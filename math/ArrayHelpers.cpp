#include "ArrayHelpers.h"

#include "FVector.h"

#include <algorithm>
#include <limits>

namespace {

template <typename T>
T Largest(const T* values, int n, T start) {
    if (values == nullptr) return start;
    for (int i = 0; i < n; ++i) start = std::max(start, values[i]);
    return start;
}

template <typename T>
T Smallest(const T* values, int n) {
    T smallest = std::numeric_limits<T>::max();
    if (values == nullptr) return smallest;
    for (int i = 0; i < n; ++i) smallest = std::min(smallest, values[i]);
    return smallest;
}

template <typename T>
float Mean(const T* values, int n) {
    if (values == nullptr || n <= 0) return std::numeric_limits<float>::max();
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += values[i];
    return static_cast<float>(sum / n);
}

}  // namespace

int IMax(const int* values, int n) {
    return Largest(values, n, std::numeric_limits<int>::min());
}

int IMin(const int* values, int n) {
    return Smallest(values, n);
}

unsigned short UIMax(const unsigned short* values, int n) {
    return Largest<unsigned short>(values, n, 0);
}

unsigned short UIMin(const unsigned short* values, int n) {
    return Smallest(values, n);
}

unsigned char UCMax(const unsigned char* values, int n) {
    return Largest<unsigned char>(values, n, 0);
}

unsigned char UCMin(const unsigned char* values, int n) {
    return Smallest(values, n);
}

float FMax(const float* values, int n) {
    return Largest(values, n, std::numeric_limits<float>::min());
}

float FMin(const float* values, int n) {
    return Smallest(values, n);
}

float mean(const float* values, int n) {
    return Mean(values, n);
}

float mean(const unsigned short* values, int n) {
    return Mean(values, n);
}

float mean(const unsigned char* values, int n) {
    return Mean(values, n);
}

float mean(const FVector& v) {
    return Mean(v.GetPointer(), v.dim());
}
