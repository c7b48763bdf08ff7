#include "SlicePixels.h"

#include "SliceKernels.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace korvane_detail {

namespace {

// Adding 1.5 * 2^23 (or 2^52) leaves the nearest integer in the low bits: faster than a conversion that rounds, since
// the compiler makes vectors of it, and the same everywhere.
template <typename Pixel>
Pixel Round(float value) {
    constexpr float kMagic = 12582912.0F;
    return static_cast<Pixel>(std::bit_cast<std::int32_t>(value + kMagic) - std::bit_cast<std::int32_t>(kMagic));
}

template <typename Pixel>
Pixel Round(double value) {
    if constexpr (std::is_same_v<Pixel, float>) {
        return static_cast<float>(value);
    } else {
        constexpr double kMagic = 6755399441055744.0;
        return static_cast<Pixel>(std::bit_cast<std::int64_t>(value + kMagic) - std::bit_cast<std::int64_t>(kMagic));
    }
}

template <typename Pixel, typename Number>
void StoreAs(const void* samples, int count, void* pixels) {
    const auto* const in = static_cast<const Number*>(samples);
    auto* const out = static_cast<Pixel*>(pixels);
    for (int i = 0; i < count; ++i) out[i] = Round<Pixel>(in[i]);
}

/// Calls f with a value of the voxel type.
template <typename Function>
auto WithType(CVolume::PixelType type, Function f) {
    switch (type) {
    case CVolume::PT_SHORT: return f(std::int16_t{});
    case CVolume::PT_USHORT: return f(std::uint16_t{});
    case CVolume::PT_BYTE: return f(std::uint8_t{});
    case CVolume::PT_FLOAT: return f(float{});
    case CVolume::PT_LONG: return f(std::int32_t{});
    case CVolume::PT_ULONG: break;
    }
    return f(std::uint32_t{});
}

}  // namespace

void StoreSamples(const void* samples, int count, CVolume::PixelType type, void* pixels) {
    WithType(type, [&](auto pixel) {
        using Pixel = decltype(pixel);
        using Number = std::conditional_t<(sizeof(Pixel) < 4), float, double>;
        StoreAs<Pixel, Number>(samples, count, pixels);
    });
}

void StoreValue(double value, CVolume::PixelType type, void* pixel) {
    WithType(type, [&](auto sample) {
        using Pixel = decltype(sample);
        if constexpr (std::is_same_v<Pixel, float>) {
            sample = static_cast<float>(value);
        } else if (value == value) {
            using Limits = std::numeric_limits<Pixel>;
            sample = Round<Pixel>(std::clamp<double>(value, Limits::min(), Limits::max()));
        }
        std::memcpy(pixel, &sample, sizeof sample);
    });
}

void FillPixels(const void* pixel, int size, std::size_t count, void* pixels) {
    const auto fill = [&](auto value) {
        std::memcpy(&value, pixel, sizeof value);
        std::fill_n(static_cast<decltype(value)*>(pixels), count, value);
    };
    switch (size) {
    case 1: return fill(std::uint8_t{});
    case 2: return fill(std::uint16_t{});
    default: return fill(std::uint32_t{});
    }
}

SlabRow::SlabRow(Mode mode, int width)
    : m_Mode(mode), m_Values(static_cast<std::size_t>(width)), m_Counts(static_cast<std::size_t>(width)) {}

void SlabRow::Clear() {
    std::fill(m_Counts.begin(), m_Counts.end(), 0);
}

template <typename Value>
void SlabRow::Add(int first, int count, const Value* values) {
    double* const sums = m_Values.data() + first;
    int* const counts = m_Counts.data() + first;
    const auto combine = [&](auto operation) {
        for (int i = 0; i < count; ++i) {
            const double value = values[i];
            sums[i] = counts[i] == 0 ? value : operation(sums[i], value);
            ++counts[i];
        }
    };
    switch (m_Mode) {
    case kMean: return combine([](double a, double b) { return a + b; });
    case kMaximum: return combine([](double a, double b) { return a < b ? b : a; });
    case kMinimum: return combine([](double a, double b) { return b < a ? b : a; });
    }
}

template <typename Value>
void SlabRow::AddMeasured(int first, int count, const Value* values, const unsigned char* measured) {
    if (measured == nullptr) return Add(first, count, values);
    int* const counts = m_Counts.data() + first;
    for (int i = 0; i < count; ++i) {
        int& samples = counts[i];
        if (measured[i] != 0) {
            samples = std::max(samples, 0);
            Add(first + i, 1, values + i);
        } else if (samples == 0) {
            samples = -1;
        }
    }
}

void SlabRow::AddSamples(int first, int count, const void* samples, bool inFloat, const unsigned char* measured) {
    if (inFloat) {
        AddMeasured(first, count, static_cast<const float*>(samples), measured);
    } else {
        AddMeasured(first, count, static_cast<const double*>(samples), measured);
    }
}

void SlabRow::AddPixels(int first, int count, const void* pixels, CVolume::PixelType type,
                        const unsigned char* measured) {
    WithType(type,
             [&](auto pixel) { AddMeasured(first, count, static_cast<const decltype(pixel)*>(pixels), measured); });
}

void SlabRow::Store(CVolume::PixelType type, const void* background, const void* padding, void* pixels) const {
    WithType(type, [&](auto pixel) {
        using Pixel = decltype(pixel);
        Pixel unmeasured;
        std::memcpy(&pixel, background, sizeof pixel);
        std::memcpy(&unmeasured, padding, sizeof unmeasured);
        for (std::size_t i = 0; i < m_Values.size(); ++i) {
            const double value = m_Mode == kMean ? m_Values[i] / m_Counts[i] : m_Values[i];
            static_cast<Pixel*>(pixels)[i] = m_Counts[i] > 0   ? Round<Pixel>(value)
                                             : m_Counts[i] < 0 ? unmeasured
                                                               : pixel;
        }
    });
}

GreyWindow::GreyWindow(CVolume::PixelType type, double centre, double width) : m_Type(type) {
    const double one = type == CVolume::PT_FLOAT ? 0 : 1;
    // A width of 1 has nothing between black and white: steep enough for that, and finite. Its border is black.
    m_Scale = 255 / std::max(width - one, 1e-9);
    const double middle = width > one ? 127.5 + 0.5 : 0;  // truncated later: to the nearest
    m_Offset = middle - (centre - one / 2) * m_Scale;
}

template <typename Pixel>
void GreyWindow::MapAs(const void* pixels, int count, unsigned char* grey) const {
    const auto* const in = static_cast<const Pixel*>(pixels);
    for (int i = 0; i < count; ++i) {
        const double value = in[i] * m_Scale + m_Offset;
        const double low = value > 0 ? value : 0;  // NaN is black
        grey[i] = static_cast<unsigned char>(low < 255 ? low : 255);
    }
}

void GreyWindow::Map(const void* pixels, int count, unsigned char* grey) const {
    WithType(m_Type, [&](auto pixel) { MapAs<decltype(pixel)>(pixels, count, grey); });
}

}  // namespace korvane_detail
