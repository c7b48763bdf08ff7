#include "FrameLayout.h"

namespace {

template <class Sample>
void ExtendSamples(unsigned precision, std::span<std::uint8_t> pixels) {
    const unsigned unused = 8 * sizeof(Sample) - precision;
    for (std::size_t i = 0; i + sizeof(Sample) <= pixels.size(); i += sizeof(Sample)) {
        Sample sample;
        std::memcpy(&sample, &pixels[i], sizeof sample);
        sample = static_cast<Sample>(static_cast<Sample>(static_cast<std::uint32_t>(sample) << unused) >> unused);
        std::memcpy(&pixels[i], &sample, sizeof sample);
    }
}

}  // namespace

FrameLayout::FrameLayout(const DcmFrameFormat& format)
    : m_columns(format.columns), m_rows(format.rows), m_samples(format.samplesPerPixel),
      m_sampleBytes(format.bitsAllocated / 8) {
    const bool planes = format.planarConfiguration == 1;
    m_pixelStep = planes ? 1 : m_samples;
    m_rowBytes = m_columns * m_pixelStep * m_sampleBytes;
    m_componentBytes = planes ? m_rowBytes * m_rows : m_sampleBytes;
}

void CheckDimensions(const DcmFrameFormat& format, std::uint64_t columns, std::uint64_t rows, std::uint64_t samples) {
    if (columns == format.columns && rows == format.rows && samples == format.samplesPerPixel) return;
    Fail("the stream holds ", columns, " x ", rows, " pixels of ", samples, " samples, not ", format.columns, " x ",
         format.rows, " of ", format.samplesPerPixel);
}

void FinishSamples(DcmFrameFormat& format, unsigned precision, std::span<std::uint8_t> pixels) {
    if (format.highBit >= precision) format.highBit = format.bitsStored - 1;
    if (format.pixelRepresentation == 0 || precision != format.bitsStored || precision == format.bitsAllocated) return;
    if (format.bitsAllocated == 8) {
        ExtendSamples<std::int8_t>(precision, pixels);
    } else if (format.bitsAllocated == 16) {
        ExtendSamples<std::int16_t>(precision, pixels);
    } else {
        ExtendSamples<std::int32_t>(precision, pixels);
    }
}

bool IsPhotometric(const DcmFrameFormat& format, const char* photometric) {
    return std::strncmp(format.photometric, photometric, sizeof format.photometric) == 0;
}

void SetPhotometric(DcmFrameFormat& format, const char* photometric) {
    std::memset(format.photometric, 0, sizeof format.photometric);
    std::memcpy(format.photometric, photometric, std::strlen(photometric));
}
