// Where the samples of a frame that is not compressed lie, and rows of samples in and out of it.
#pragma once

#include "Codec.h"

#include <cstring>

/// Geometry of a frame's bytes. A "line" here is what streams have: a row of pixels with the samples of `count`
/// components, `first` and those behind it, together.
class FrameLayout {
public:
    explicit FrameLayout(const DcmFrameFormat& format);

    std::size_t Columns() const { return m_columns; }
    std::size_t Rows() const { return m_rows; }
    std::size_t Samples() const { return m_samples; }
    std::size_t SampleBytes() const { return m_sampleBytes; }
    std::size_t FrameBytes() const { return m_columns * m_rows * m_samples * m_sampleBytes; }
    /// From a sample to the same of the next pixel, in samples.
    std::size_t PixelStep() const { return m_pixelStep; }
    /// Of a component's first sample in a row, in bytes.
    std::size_t Offset(std::size_t component, std::size_t row) const {
        return component * m_componentBytes + row * m_rowBytes;
    }

    /// Values are cut to the frame's samples, or extended as their type is.
    template <class T>
    void StoreLine(std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count, const T* line) const;
    template <class T>
    void LoadLine(const std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count, T* line) const;

private:
    template <class Sample, class T>
    void StoreSamples(std::uint8_t* at, std::size_t step, const T* values, std::size_t valueStep, std::size_t n) const;
    template <class Sample, class T>
    void LoadSamples(const std::uint8_t* at, std::size_t step, T* values, std::size_t valueStep, std::size_t n) const;
    template <class Visitor>
    void ForSamples(std::size_t row, std::size_t first, std::size_t count, Visitor visit) const;

    std::size_t m_columns;
    std::size_t m_rows;
    std::size_t m_samples;
    std::size_t m_sampleBytes;
    std::size_t m_pixelStep;
    std::size_t m_rowBytes;
    std::size_t m_componentBytes;
};

/// Fails unless a stream's image is the data set's.
void CheckDimensions(const DcmFrameFormat& format, std::uint64_t columns, std::uint64_t rows, std::uint64_t samples);

/// For samples that a stream holds with fewer bits than are allocated, and that lie in the low ones now: signed pixels get
/// their sign in the bits above, where the stream's precision is the data set's bits stored; a high bit that says that
/// they lie further up moves.
void FinishSamples(DcmFrameFormat& format, unsigned precision, std::span<std::uint8_t> pixels);

bool IsPhotometric(const DcmFrameFormat& format, const char* photometric);
void SetPhotometric(DcmFrameFormat& format, const char* photometric);

template <class Sample, class T>
void FrameLayout::StoreSamples(std::uint8_t* at, std::size_t step, const T* values, std::size_t valueStep,
                               std::size_t n) const {
    if (step == 1 && valueStep == 1) {
        for (std::size_t i = 0; i < n; ++i) {
            const auto sample = static_cast<Sample>(values[i]);
            std::memcpy(at + i * sizeof sample, &sample, sizeof sample);
        }
        return;
    }
    for (std::size_t i = 0; i < n; ++i) {
        const auto sample = static_cast<Sample>(values[i * valueStep]);
        std::memcpy(at + i * step * sizeof sample, &sample, sizeof sample);
    }
}

template <class Sample, class T>
void FrameLayout::LoadSamples(const std::uint8_t* at, std::size_t step, T* values, std::size_t valueStep,
                              std::size_t n) const {
    for (std::size_t i = 0; i < n; ++i) {
        Sample sample;
        std::memcpy(&sample, at + i * step * sizeof sample, sizeof sample);
        values[i * valueStep] = static_cast<T>(sample);
    }
}

// A line that lies in the frame as it does in the stream is one run; any other one is taken component by component.
template <class Visitor>
void FrameLayout::ForSamples(std::size_t row, std::size_t first, std::size_t count, Visitor visit) const {
    if (count == m_pixelStep) {
        visit(Offset(first, row), std::size_t{1}, std::size_t{0}, std::size_t{1}, m_columns * count);
        return;
    }
    for (std::size_t c = 0; c < count; ++c) visit(Offset(first + c, row), m_pixelStep, c, count, m_columns);
}

template <class T>
void FrameLayout::StoreLine(std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count,
                            const T* line) const {
    ForSamples(row, first, count,
               [&](std::size_t offset, std::size_t step, std::size_t from, std::size_t lineStep, std::size_t n) {
                   if (m_sampleBytes == 1)
                       StoreSamples<std::uint8_t>(pixels + offset, step, line + from, lineStep, n);
                   else if (m_sampleBytes == 2)
                       StoreSamples<std::uint16_t>(pixels + offset, step, line + from, lineStep, n);
                   else
                       StoreSamples<std::uint32_t>(pixels + offset, step, line + from, lineStep, n);
               });
}

template <class T>
void FrameLayout::LoadLine(const std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count,
                           T* line) const {
    ForSamples(row, first, count,
               [&](std::size_t offset, std::size_t step, std::size_t from, std::size_t lineStep, std::size_t n) {
                   if (m_sampleBytes == 1)
                       LoadSamples<std::uint8_t>(pixels + offset, step, line + from, lineStep, n);
                   else if (m_sampleBytes == 2)
                       LoadSamples<std::uint16_t>(pixels + offset, step, line + from, lineStep, n);
                   else
                       LoadSamples<std::uint32_t>(pixels + offset, step, line + from, lineStep, n);
               });
}
