#include "CVariant.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

// Converts to a float; false where the value is not a number.
bool ToFloat(VARIANT& value, float& number) {
    VARIANT converted;
    VariantInit(&converted);
    if (FAILED(VariantChangeType(&converted, &value, 0, VT_R4))) return false;
    number = converted.fltVal;
    return true;
}

// Replaces what `out` held by `array`, which it takes over; frees the array when `out` cannot be cleared.
int StoreArray(VARIANT* out, SAFEARRAY* array) {
    if (FAILED(VariantClear(out))) {
        SafeArrayDestroy(array);
        return 0;
    }
    out->vt = VT_ARRAY | VT_R4;
    out->parray = array;
    return 1;
}

bool IsElementType(VARTYPE vt) {
    constexpr VARTYPE kTypes[] = {VT_I1,  VT_UI1,  VT_I2, VT_UI2, VT_I4,   VT_UI4,  VT_I8,   VT_UI8,
                                  VT_INT, VT_UINT, VT_R4, VT_R8,  VT_BOOL, VT_DATE, VT_BSTR, VT_VARIANT};
    return std::find(std::begin(kTypes), std::end(kTypes), vt) != std::end(kTypes);
}

// Reads the elements of an array by indices that count from 0, whatever the array's lower bounds.
class ArrayReader {
public:
    // False unless `in` is an array of `dimensions` dimensions, each with at least `n` elements.
    bool Open(VARIANT* in, UINT dimensions, int n) {
        if (in == nullptr || (in->vt & VT_ARRAY) == 0 || (in->vt & VT_BYREF) != 0 || n < 1) return false;
        m_pArray = in->parray;
        if (m_pArray == nullptr || SafeArrayGetDim(m_pArray) != dimensions) return false;
        if (FAILED(SafeArrayGetVartype(m_pArray, &m_Type)) || !IsElementType(m_Type)) return false;
        for (UINT i = 0; i < dimensions; ++i) {
            LONG last = 0;
            if (FAILED(SafeArrayGetLBound(m_pArray, i + 1, &m_First[i])) ||
                FAILED(SafeArrayGetUBound(m_pArray, i + 1, &last)) ||
                static_cast<long long>(last) - m_First[i] + 1 < n) {
                return false;
            }
        }
        return true;
    }

    bool Read(int i, int j, float& number) const {
        LONG indices[] = {m_First[0] + i, m_First[1] + j};
        VARIANT element;
        VariantInit(&element);
        void* const place = m_Type == VT_VARIANT ? static_cast<void*>(&element) : &element.llVal;
        if (FAILED(SafeArrayGetElement(m_pArray, indices, place))) return false;
        if (m_Type != VT_VARIANT) element.vt = m_Type;
        const bool done = ToFloat(element, number);
        VariantClear(&element);
        return done;
    }

    // Row after row; false where an element is not a number.
    bool ReadAll(int rows, int columns, std::vector<float>& numbers) const {
        for (int i = 0; i < rows; ++i) {
            for (int j = 0; j < columns; ++j) {
                float number = 0;
                if (!Read(i, j, number)) return false;
                numbers.push_back(number);
            }
        }
        return true;
    }

private:
    SAFEARRAY* m_pArray = nullptr;
    VARTYPE m_Type = VT_EMPTY;
    LONG m_First[2] = {};
};

int Report(bool* ok, bool done) {
    if (ok != nullptr) *ok = done;
    return done ? 1 : 0;
}

}  // namespace

float CVariant::GetFloat(VARIANT* value) {
    float number = 0;
    return value != nullptr && ToFloat(*value, number) ? number : 0.0F;
}

int CVariant::CreateFloatArray(VARIANT* out, FVector v, int n) {
    if (out == nullptr || n < 1 || n > v.dim()) return 0;
    SAFEARRAY* const array = SafeArrayCreateVector(VT_R4, 0, static_cast<ULONG>(n));
    if (array == nullptr) return 0;
    for (LONG i = 0; i < n; ++i) SafeArrayPutElement(array, &i, &v[i]);
    return StoreArray(out, array);
}

int CVariant::CreateFloatMatrix(VARIANT* out, FMatrix m, int n) {
    if (out == nullptr || n < 1 || n > m.nrows() || n > m.ncols()) return 0;
    SAFEARRAYBOUND bounds[] = {{static_cast<ULONG>(n), 0}, {static_cast<ULONG>(n), 0}};
    SAFEARRAY* const array = SafeArrayCreate(VT_R4, 2, bounds);
    if (array == nullptr) return 0;
    for (LONG i = 0; i < n; ++i) {
        for (LONG j = 0; j < n; ++j) {
            LONG indices[] = {i, j};
            SafeArrayPutElement(array, indices, &m[i][j]);
        }
    }
    return StoreArray(out, array);
}

int CVariant::GetFloatArray(VARIANT* in, FVector& v, bool* const ok, int n) {
    ArrayReader reader;
    std::vector<float> numbers;
    const bool done = reader.Open(in, 1, n) && reader.ReadAll(n, 1, numbers);
    if (done) v.assign(numbers.data(), n);
    return Report(ok, done);
}

int CVariant::GetFloatMatrix(VARIANT* in, float** m, bool* const ok, int n) {
    ArrayReader reader;
    std::vector<float> numbers;
    const bool done = m != nullptr && reader.Open(in, 2, n) && reader.ReadAll(n, n, numbers);
    for (int i = 0; done && i < n; ++i) std::copy_n(&numbers[static_cast<std::size_t>(i) * n], n, m[i]);
    return Report(ok, done);
}
