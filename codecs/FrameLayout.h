// Where the samples of an uncompressed frame lie in memory, and copying rows of samples into and out of it.
#pragma once

#include "Codec.h"

#include <cstring>

/// Positions of the samples in a frame's bytes, as DcmFrameFormat describes them: samples of a pixel together
/// (planarConfiguration 0) or one plane for each component (1). Holds numbers only, no pixels.
///
/// A "line" is a row of pixels in the order of a compressed stream: for each pixel the values of `count` components,
/// beginning with component `first`.
class FrameLayout {
public:
    explicit FrameLayout(const DcmFrameFormat& format);

    std::size_t Columns() const { return m_columns; }
    std::size_t Rows() const { return m_rows; }
    std::size_t Samples() const { return m_samples; }
    std::size_t SampleBytes() const { return m_sampleBytes; }
    std::size_t FrameBytes() const { return m_columns * m_rows * m_samples * m_sampleBytes; }
    /// Distance between a sample and the same component's sample of the next pixel, counted in samples.
    std::size_t PixelStep() const { return m_pixelStep; }
    /// Bytes from the start of the frame to a component's first sample in a row.
    std::size_t Offset(std::size_t component, std::size_t row) const {
        return component * m_componentBytes + row * m_rowBytes;
    }

    /// Copies a line of Columns() * count values into the frame, or out of it. `pixels` is the start of the frame.
    /// Values are converted as by static_cast between T and the frame's unsigned sample type: cut to its width, or
    /// extended.
    template <class T>
    void StoreLine(std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count, const T* line) const;
    template <class T>
    void LoadLine(const std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count, T* line) const;

private:
    /// Values that stand at equal distances, both in the frame and in a line.
    struct Run {
        std::size_t offset;     ///< bytes from the start of the frame to the first one
        std::size_t step;       ///< from one to the next in the frame, in samples
        std::size_t lineFirst;  ///< index of the first one in the line
        std::size_t lineStep;   ///< from one to the next in the line
        std::size_t count;
    };
    template <class Sample, class T>
    static void StoreRun(std::uint8_t* pixels, Run run, const T* line);
    template <class Sample, class T>
    static void LoadRun(const std::uint8_t* pixels, Run run, T* line);
    /// Calls visit.operator()<Sample>(run) for each run of a line's values: once where frame and line have the same order,
    /// else once for each component. Sample is the unsigned type of the frame's samples.
    template <class Visitor>
    void ForRuns(std::size_t row, std::size_t first, std::size_t count, Visitor visit) const;

    std::size_t m_columns;
    std::size_t m_rows;
    std::size_t m_samples;
    std::size_t m_sampleBytes;
    std::size_t m_pixelStep;
    std::size_t m_rowBytes;
    std::size_t m_componentBytes;
};

/// Throws CodecFailure unless the sizes that a stream states are those of the data set.
void CheckDimensions(const DcmFrameFormat& format, std::uint64_t columns, std::uint64_t rows, std::uint64_t samples);

/// The last step of decoding, for samples of `precision` bits that now lie in the low bits of those allocated.
/// - Where the data set's pixels are signed and its Bits Stored equals `precision`, the sign is extended into the
///   unused bits above.
/// - Where the data set's High Bit says that the samples lie further up, it becomes Bits Stored - 1.
void FinishSamples(DcmFrameFormat& format, unsigned precision, std::span<std::uint8_t> pixels);

/// Compares and sets the Photometric Interpretation (0028,0004), such as "YBR_FULL"; at most 19 characters.
bool IsPhotometric(const DcmFrameFormat& format, const char* photometric);
void SetPhotometric(DcmFrameFormat& format, const char* photometric);

template <class Sample, class T>
void FrameLayout::StoreRun(std::uint8_t* pixels, Run run, const T* line) {
    std::uint8_t* const at = pixels + run.offset;
    const T* const values = line + run.lineFirst;
    if (run.step == 1 && run.lineStep == 1) {  // a loop of its own, of which the compiler makes vectors
        for (std::size_t i = 0; i < run.count; ++i) {
            const auto sample = static_cast<Sample>(values[i]);
            std::memcpy(at + i * sizeof sample, &sample, sizeof sample);
        }
        return;
    }
    for (std::size_t i = 0; i < run.count; ++i) {
        const auto sample = static_cast<Sample>(values[i * run.lineStep]);
        std::memcpy(at + i * run.step * sizeof sample, &sample, sizeof sample);
    }
}

template <class Sample, class T>
void FrameLayout::LoadRun(const std::uint8_t* pixels, Run run, T* line) {
    const std::uint8_t* const at = pixels + run.offset;
    T* const values = line + run.lineFirst;
    for (std::size_t i = 0; i < run.count; ++i) {
        Sample sample;
        std::memcpy(&sample, at + i * run.step * sizeof sample, sizeof sample);
        values[i * run.lineStep] = static_cast<T>(sample);
    }
}

template <class Visitor>
void FrameLayout::ForRuns(std::size_t row, std::size_t first, std::size_t count, Visitor visit) const {
    const auto visitTyped = [&](const Run& run) {
        switch (m_sampleBytes) {
        case 1: return visit.template operator()<std::uint8_t>(run);
        case 2: return visit.template operator()<std::uint16_t>(run);
        default: return visit.template operator()<std::uint32_t>(run);
        }
    };
    if (count == m_pixelStep) return visitTyped({Offset(first, row), 1, 0, 1, m_columns * count});
    for (std::size_t c = 0; c < count; ++c) visitTyped({Offset(first + c, row), m_pixelStep, c, count, m_columns});
}

template <class T>
void FrameLayout::StoreLine(std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count,
                            const T* line) const {
    ForRuns(row, first, count, [&]<class Sample>(const Run& run) { StoreRun<Sample>(pixels, run, line); });
}

template <class T>
void FrameLayout::LoadLine(const std::uint8_t* pixels, std::size_t row, std::size_t first, std::size_t count,
                           T* line) const {
    ForRuns(row, first, count, [&]<class Sample>(const Run& run) { LoadRun<Sample>(pixels, run, line); });
}
