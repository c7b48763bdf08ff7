#include "ImageFile.h"

#include "../core/Error.h"
#include "../dataset/LeftValues.h"
#include "../study/SeriesLoader.h"
#include "../study/StoredPixels.h"

#include "base/Bytes.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace korvane {

ImageFile::ImageFile(const NamedFile& from, const Watch& watch) : m_File(ReadDataSetFile(from, kParseAll, watch)) {
    if (m_File.dataSet == nullptr) throw Error(ErrorKind::NotDicom, from.name + ": not a DICOM file").InFile(from.name);
    TakeHeader(from);
    if (m_Header.form.kind == PixelForm::Kind::None) Fail(ErrorKind::Unsupported, "no pixel data");
    if (m_File.encapsulated) Decode(watch);
    CheckForm();
    FindPixels();
}

ImageFile::ImageFile(const NamedFile& from, DataSet frame) {
    m_File.dataSet = DataSetParts::Take(frame);
    m_File.complete = true;
    m_File.hasPixels = true;
    TakeHeader(from);
    CheckForm();
    FindPixels();
}

void ImageFile::TakeHeader(const NamedFile& from) {
    m_Header = ReadImageHeader(from.place, m_File);
    m_Header.SetFile(from);
}

void ImageFile::Fail(ErrorKind kind, const std::string& why) const {
    throw Error(kind, GetPath() + ": " + why).InFile(GetPath());
}

void ImageFile::Decode(const Watch& watch) {
    CheckClaims(m_Header);
    CodecManager codecs;
    codecs.SetStopQuestion(watch.GetStopQuestion());
    const bool decoded = m_File.complete && codecs.Decode(m_File.dataSet.get()) != 0;
    watch.StopIfAsked();
    if (!decoded) {
        Fail(ErrorKind::Damaged, m_File.complete ? "cannot decode " + DescribeSyntax(m_Header.common->transferSyntax) +
                                                       ": " + codecs.GetError()
                                                 : "the data ends early or is damaged");
    }
    if (codecs.WasLossy()) {
        watch.Tell({.kind = FindingKind::Lossy,
                    .files = {GetPath()},
                    .text = GetPath() + ": the pixels were compressed with loss"});
    }
    TakeHeader(m_Header.GetFile());  // codecs may have changed what it says of the pixels
}

void ImageFile::CheckForm() const {
    const PixelForm& form = GetForm();
    if (form.rows <= 0 || form.columns <= 0 || form.allocated <= 0 || form.samples <= 0) {
        Fail(ErrorKind::Damaged, "an image without rows, columns or bits");
    }
    if (form.kind != PixelForm::Kind::Integer) return;
    const int a = form.allocated;
    if (a != 1 && a != 8 && a != 16 && a != 32) {
        Fail(ErrorKind::Unsupported, std::to_string(a) + "-bit pixels cannot be drawn");
    }
    if (form.stored <= 0 || form.stored > a || form.highBit >= a || form.highBit + 1 < form.stored) {
        Fail(ErrorKind::Damaged, "bits stored " + std::to_string(form.stored) + " and high bit " +
                                     std::to_string(form.highBit) + " do not fit into " + std::to_string(a) + " bits");
    }
}

void ImageFile::FindPixels() {
    const PixelForm& form = GetForm();
    const Tag tag = form.kind == PixelForm::Kind::Float    ? tags::FloatPixelData
                    : form.kind == PixelForm::Kind::Double ? tags::DoubleFloatPixelData
                                                           : tags::PixelData;
    const VR* const pixels = FindElement(*m_File.dataSet, tag);
    m_bPlanar = form.samples > 1 && FindInteger(*m_File.dataSet, tags::PlanarConfiguration, 0) == 1;
    m_bSubsampled = form.samples == 3 && form.photometric.ends_with("_422");
    if (m_bSubsampled && form.columns % 2 != 0) {
        Fail(ErrorKind::Damaged, form.photometric + " pixels with an odd number of columns");
    }
    const auto bits = form.kind == PixelForm::Kind::Float    ? 32U
                      : form.kind == PixelForm::Kind::Double ? 64U
                                                             : static_cast<unsigned>(form.allocated);
    // At most 2^16 rows, columns and samples each, and 2^31 frames: split, since the product may not fit.
    const std::uint64_t bytesEach = (CountWords() * bits + 7) / 8;
    const std::uint64_t present = pixels != nullptr && pixels->m_pData != nullptr ? pixels->m_Length : 0;
    const auto frames = static_cast<std::uint64_t>(m_Header.frames);
    const bool whole = bits == 1 ? present * 8 / CountWords() >= frames : present / bytesEach >= frames;
    if (pixels == nullptr || !whole) {
        Fail(ErrorKind::Damaged, "pixel data ends early: " + std::to_string(present) + " bytes for " +
                                     std::to_string(frames) + (frames == 1 ? " frame" : " frames") + " of " +
                                     std::to_string(bytesEach));
    }
    m_pPixels = pixels->m_pData;
}

/// Of a frame.
std::uint64_t ImageFile::CountWords() const {
    const PixelForm& form = GetForm();
    const auto pixels = static_cast<std::uint64_t>(form.rows) * static_cast<std::uint64_t>(form.columns);
    return m_bSubsampled ? 2 * pixels : static_cast<std::uint64_t>(form.samples) * pixels;
}

std::size_t ImageFile::IndexOf(int frame, int row, int column, int sample) const {
    const PixelForm& form = GetForm();
    const auto size = [](int number) { return static_cast<std::size_t>(number); };
    const std::size_t first = size(frame) * static_cast<std::size_t>(CountWords());
    if (m_bPlanar) return first + (size(sample) * size(form.rows) + size(row)) * size(form.columns) + size(column);
    return first + (size(row) * size(form.columns) + size(column)) * size(form.samples) + size(sample);
}

std::uint32_t ImageFile::WordAt(std::size_t index) const {
    switch (GetForm().allocated) {
    case 1: return m_pPixels[index / 8] >> (index % 8) & 1U;
    case 8: return m_pPixels[index];
    case 16: return platform::LoadLittle<std::uint16_t>(m_pPixels + 2 * index);
    default: return platform::LoadLittle<std::uint32_t>(m_pPixels + 4 * index);
    }
}

double ImageFile::ValueAt(std::size_t index) const {
    const PixelForm& form = GetForm();
    if (form.kind == PixelForm::Kind::Float) {
        return static_cast<double>(std::bit_cast<float>(platform::LoadLittle<std::uint32_t>(m_pPixels + 4 * index)));
    }
    if (form.kind == PixelForm::Kind::Double) {
        return std::bit_cast<double>(platform::LoadLittle<std::uint64_t>(m_pPixels + 8 * index));
    }
    // To the top of the word, and down again: what is above goes, and the sign comes along.
    const std::uint32_t top = WordAt(index) << static_cast<unsigned>(31 - form.highBit);
    const auto down = static_cast<unsigned>(32 - form.stored);
    return form.isSigned ? static_cast<double>(static_cast<std::int32_t>(top) >> down)
                         : static_cast<double>(top >> down);
}

void ImageFile::ReadRow(int frame, int row, std::vector<double>& values) const {
    const PixelForm& form = GetForm();
    const auto samples = static_cast<std::size_t>(form.samples);
    values.resize(static_cast<std::size_t>(form.columns) * samples);
    if (m_bSubsampled) {
        ReadSubsampledRow(frame, row, values);
        return;
    }
    for (std::size_t sample = 0; sample < samples; ++sample) {
        std::size_t index = IndexOf(frame, row, 0, static_cast<int>(sample));
        const std::size_t step = m_bPlanar ? 1 : samples;
        for (std::size_t at = sample; at < values.size(); at += samples, index += step) values[at] = ValueAt(index);
    }
}

void ImageFile::MapRow(int frame, int row, std::span<const std::uint8_t> table, std::uint8_t* greys) const {
    const PixelForm& form = GetForm();
    const std::size_t first = IndexOf(frame, row, 0, 0);
    const auto count = static_cast<std::size_t>(form.columns);
    const auto low = static_cast<unsigned>(form.highBit + 1 - form.stored);
    const std::uint32_t mask = (1U << static_cast<unsigned>(form.stored)) - 1U;
    const auto map = [&](auto wordAt) {
        for (std::size_t i = 0; i < count; ++i) greys[i] = table[std::uint32_t{wordAt(first + i)} >> low & mask];
    };
    switch (form.allocated) {
    case 8: return map([this](std::size_t index) { return m_pPixels[index]; });
    case 16:
        return map([this](std::size_t index) { return platform::LoadLittle<std::uint16_t>(m_pPixels + 2 * index); });
    default: return map([this](std::size_t index) { return WordAt(index); });
    }
}

void ImageFile::ReadSubsampledRow(int frame, int row, std::vector<double>& values) const {
    const auto columns = static_cast<std::size_t>(GetForm().columns);
    const std::size_t first = static_cast<std::size_t>(frame) * static_cast<std::size_t>(CountWords()) +
                              static_cast<std::size_t>(row) * columns * 2;
    for (std::size_t column = 0; column < columns; ++column) {
        const std::size_t pair = first + column / 2 * 4;
        values[column * 3] = ValueAt(pair + column % 2);
        values[column * 3 + 1] = ValueAt(pair + 2);
        values[column * 3 + 2] = ValueAt(pair + 3);
    }
}

std::size_t ImageFile::CountBitsAbove(int frame) const {
    const PixelForm& form = GetForm();
    if (form.kind != PixelForm::Kind::Integer || form.highBit + 1 == form.allocated) return 0;
    const auto high = static_cast<unsigned>(form.highBit);
    const std::uint32_t all = (form.allocated == 32 ? 0U : 1U << static_cast<unsigned>(form.allocated)) - 1U;
    const std::uint32_t above = all & ~((2U << high) - 1U);
    const auto words = static_cast<std::size_t>(CountWords());
    const std::size_t first = static_cast<std::size_t>(frame) * words;
    const auto bytes = static_cast<std::size_t>(form.allocated / 8);
    if (bytes > 0 && !HasBitsAbove({m_pPixels + first * bytes, words * bytes}, form)) return 0;
    std::size_t count = 0;
    for (std::size_t i = first; i < first + words; ++i) {
        const std::uint32_t word = WordAt(i);
        const bool isNegative = form.isSigned && (word >> high & 1U) != 0;
        if ((word & above) != 0 && !(isNegative && (word & above) == above)) ++count;
    }
    return count;
}

}  // namespace korvane
