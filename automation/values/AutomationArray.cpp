// SAFEARRAY on systems other than Windows. The memory block of the descriptor begins with a header that holds the
// element type; the elements have a block of their own.
#include "Automation.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr USHORT kHasBstr = 0x0100;
constexpr USHORT kHasVariant = 0x0800;
constexpr USHORT kHasVartype = 0x0080;
constexpr std::uint64_t kLargest = 0x7FFFFFFF;
constexpr ULONG kMostLocks = 0xFFFF;
constexpr UINT kMostDimensions = 0xFFFF;

constexpr std::size_t kHeader = 16;  // bytes in front of the descriptor for the element type; 16 keep it aligned

// Bytes of an element; 0 for a type that elements cannot have.
ULONG ElementSize(VARTYPE vt) {
    switch (vt) {
    case VT_I1:
    case VT_UI1: return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL: return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR: return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_DATE: return 8;
    case VT_BSTR: return sizeof(BSTR);
    case VT_VARIANT: return sizeof(VARIANT);
    default: return 0;
    }
}

unsigned char* BlockOf(SAFEARRAY* array) {
    return reinterpret_cast<unsigned char*>(array) - kHeader;
}

VARTYPE TypeOf(SAFEARRAY* array) {
    VARTYPE vt;
    std::memcpy(&vt, BlockOf(array), sizeof vt);
    return vt;
}

std::size_t CountOf(const SAFEARRAY* array) {
    std::size_t count = 1;
    for (UINT i = 0; i < array->cDims; ++i) count *= array->rgsabound[i].cElements;
    return count;
}

// Makes a descriptor without elements; its bounds are not set yet.
SAFEARRAY* MakeDescriptor(VARTYPE vt, UINT dimensions) {
    const std::size_t bytes = kHeader + sizeof(SAFEARRAY) + (dimensions - 1) * sizeof(SAFEARRAYBOUND);
    auto* const block = static_cast<unsigned char*>(std::calloc(1, bytes));
    if (block == nullptr) return nullptr;
    std::memcpy(block, &vt, sizeof vt);
    auto* const array = reinterpret_cast<SAFEARRAY*>(block + kHeader);
    array->cDims = static_cast<USHORT>(dimensions);
    array->cbElements = ElementSize(vt);
    array->fFeatures = kHasVartype;
    if (vt == VT_BSTR) array->fFeatures |= kHasBstr;
    if (vt == VT_VARIANT) array->fFeatures |= kHasVariant;
    return array;
}

void FreeElement(VARTYPE vt, void* element) {
    if (vt == VT_BSTR) {
        SysFreeString(*static_cast<BSTR*>(element));
        *static_cast<BSTR*>(element) = nullptr;
    } else if (vt == VT_VARIANT) {
        VariantClear(static_cast<VARIANT*>(element));
    }
}

// Copies one element into memory that holds none yet, so that nothing has to be freed there.
HRESULT CopyElement(VARTYPE vt, ULONG size, void* to, const void* from) {
    if (vt == VT_BSTR) {
        BSTR text = *static_cast<const BSTR*>(from);
        BSTR copy = nullptr;
        if (text != nullptr) {
            copy = SysAllocStringByteLen(reinterpret_cast<const char*>(text), SysStringByteLen(text));
            if (copy == nullptr) return E_OUTOFMEMORY;
        }
        *static_cast<BSTR*>(to) = copy;
        return S_OK;
    }
    if (vt == VT_VARIANT) {
        VariantInit(static_cast<VARIANT*>(to));
        return VariantCopy(static_cast<VARIANT*>(to), static_cast<const VARIANT*>(from));
    }
    std::memcpy(to, from, size);
    return S_OK;
}

// Frees an array, its elements and what they own.
void FreeArray(SAFEARRAY* array) {
    const VARTYPE vt = TypeOf(array);
    if (array->pvData != nullptr && (vt == VT_BSTR || vt == VT_VARIANT)) {
        auto* element = static_cast<unsigned char*>(array->pvData);
        for (std::size_t left = CountOf(array); left > 0; --left, element += array->cbElements) {
            FreeElement(vt, element);
        }
    }
    std::free(array->pvData);
    std::free(BlockOf(array));
}

// Copies all elements into an array of the same shape that has none yet.
HRESULT CopyElements(const SAFEARRAY* source, SAFEARRAY* copy) {
    const VARTYPE vt = TypeOf(copy);
    const std::size_t count = CountOf(copy);
    if (vt != VT_BSTR && vt != VT_VARIANT) {
        std::memcpy(copy->pvData, source->pvData, count * copy->cbElements);
        return S_OK;
    }
    auto* to = static_cast<unsigned char*>(copy->pvData);
    const auto* from = static_cast<const unsigned char*>(source->pvData);
    for (std::size_t i = 0; i < count; ++i, to += copy->cbElements, from += copy->cbElements) {
        const HRESULT copied = CopyElement(vt, copy->cbElements, to, from);
        if (copied != S_OK) return copied;
    }
    return S_OK;
}

// The address of an element; null for an index outside the bounds.
unsigned char* ElementAt(SAFEARRAY* array, const LONG* indices) {
    std::size_t at = 0, stride = 1;
    for (UINT i = 0; i < array->cDims; ++i) {
        const SAFEARRAYBOUND& bound = array->rgsabound[array->cDims - 1 - i];
        const std::int64_t along = static_cast<std::int64_t>(indices[i]) - bound.lLbound;
        if (along < 0 || along >= bound.cElements) return nullptr;
        at += static_cast<std::size_t>(along) * stride;
        stride *= bound.cElements;
    }
    return static_cast<unsigned char*>(array->pvData) + at * array->cbElements;
}

const SAFEARRAYBOUND* BoundOf(SAFEARRAY* array, UINT dimension) {
    if (dimension < 1 || dimension > array->cDims) return nullptr;
    return &array->rgsabound[array->cDims - dimension];
}

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dimensions, SAFEARRAYBOUND* bounds) {
    const ULONG size = ElementSize(vt);
    if (size == 0 || bounds == nullptr || dimensions < 1 || dimensions > kMostDimensions) return nullptr;
    std::uint64_t bytes = size;
    for (UINT i = 0; i < dimensions; ++i) {
        // A dimension of 0 elements makes the array empty, but the other dimensions must still be of a possible size.
        if (bounds[i].cElements > kLargest || bytes * bounds[i].cElements > kLargest) return nullptr;
        bytes *= bounds[i].cElements;
    }
    SAFEARRAY* const array = MakeDescriptor(vt, dimensions);
    if (array == nullptr) return nullptr;
    for (UINT i = 0; i < dimensions; ++i) array->rgsabound[dimensions - 1 - i] = bounds[i];
    array->pvData = std::calloc(1, bytes != 0 ? static_cast<std::size_t>(bytes) : 1);
    if (array->pvData == nullptr) {
        FreeArray(array);
        return nullptr;
    }
    return array;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG elements) {
    SAFEARRAYBOUND bound = {elements, lowerBound};
    return SafeArrayCreate(vt, 1, &bound);
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
    if (array == nullptr) return S_OK;
    if (array->cLocks != 0) return DISP_E_ARRAYISLOCKED;
    FreeArray(array);
    return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy) {
    if (copy == nullptr) return E_INVALIDARG;
    *copy = nullptr;
    if (source == nullptr) return S_OK;
    SAFEARRAY* const made = MakeDescriptor(TypeOf(source), source->cDims);
    if (made == nullptr) return E_OUTOFMEMORY;
    std::memcpy(made->rgsabound, source->rgsabound, source->cDims * sizeof(SAFEARRAYBOUND));
    const std::size_t count = CountOf(source);
    made->pvData = std::calloc(count != 0 ? count : 1, made->cbElements);
    const HRESULT result = made->pvData != nullptr ? CopyElements(source, made) : E_OUTOFMEMORY;
    if (result != S_OK) {
        FreeArray(made);
        return result;
    }
    *copy = made;
    return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) {
    if (array == nullptr || data == nullptr) return E_INVALIDARG;
    if (array->cLocks >= kMostLocks) return E_UNEXPECTED;
    ++array->cLocks;
    *data = array->pvData;
    return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) {
    if (array == nullptr) return E_INVALIDARG;
    if (array->cLocks == 0) return E_UNEXPECTED;
    --array->cLocks;
    return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array) {
    return array != nullptr ? array->cDims : 0;
}

UINT SafeArrayGetElemsize(SAFEARRAY* array) {
    return array != nullptr ? array->cbElements : 0;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt) {
    if (array == nullptr || vt == nullptr) return E_INVALIDARG;
    *vt = TypeOf(array);
    return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
    if (array == nullptr || bound == nullptr) return E_INVALIDARG;
    const SAFEARRAYBOUND* const found = BoundOf(array, dimension);
    if (found == nullptr) return DISP_E_BADINDEX;
    *bound = found->lLbound;
    return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound) {
    if (array == nullptr || bound == nullptr) return E_INVALIDARG;
    const SAFEARRAYBOUND* const found = BoundOf(array, dimension);
    if (found == nullptr) return DISP_E_BADINDEX;
    // Computed in 32 bits, which wrap around where the upper bound exceeds the largest LONG, as on Windows.
    *bound = static_cast<LONG>(static_cast<ULONG>(found->lLbound) + found->cElements - 1u);
    return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value) {
    if (array == nullptr || indices == nullptr) return E_INVALIDARG;
    void* const element = ElementAt(array, indices);
    if (element == nullptr) return DISP_E_BADINDEX;
    const VARTYPE vt = TypeOf(array);
    if (vt == VT_VARIANT) return VariantCopy(static_cast<VARIANT*>(element), static_cast<const VARIANT*>(value));
    // `value` is the BSTR itself, not its address.
    BSTR text = static_cast<BSTR>(value);
    if (vt != VT_BSTR && value == nullptr) return E_INVALIDARG;
    if (vt == VT_BSTR) FreeElement(vt, element);
    return CopyElement(vt, array->cbElements, element, vt == VT_BSTR ? static_cast<const void*>(&text) : value);
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value) {
    if (array == nullptr || indices == nullptr || value == nullptr) return E_INVALIDARG;
    const void* const element = ElementAt(array, indices);
    if (element == nullptr) return DISP_E_BADINDEX;
    return CopyElement(TypeOf(array), array->cbElements, value, element);
}
