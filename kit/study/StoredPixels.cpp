#include "StoredPixels.h"

#include "../core/Error.h"

#include "base/Bytes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace korvane {

namespace {

bool IsPalette(const PixelForm& form) {
    return form.photometric == "PALETTE COLOR";
}

/// The value of a word: bits down from the high one, the sign spread over all above.
template <class Word>
class WordReader {
public:
    explicit WordReader(const PixelForm& form)
        : m_iLeft(static_cast<int>(8 * sizeof(Word)) - 1 - form.highBit),
          m_iRight(static_cast<int>(8 * sizeof(Word)) - form.stored), m_bSigned(form.isSigned) {}

    Word operator()(const unsigned char* bytes) const {
        const auto shifted = static_cast<Word>(platform::LoadLittle<Word>(bytes) << m_iLeft);
        if (!m_bSigned) return static_cast<Word>(shifted >> m_iRight);
        return static_cast<Word>(static_cast<std::make_signed_t<Word>>(shifted) >> m_iRight);
    }

private:
    int m_iLeft;
    int m_iRight;
    bool m_bSigned;
};

template <class Word>
void ReadWords(const unsigned char* from, const PixelForm& form, std::span<std::byte> voxels) {
    const WordReader<Word> read(form);
    for (std::size_t at = 0; at + sizeof(Word) <= voxels.size(); at += sizeof(Word)) {
        const Word value = read(from + at);
        std::memcpy(voxels.data() + at, &value, sizeof value);
    }
}

// Whether any of the words has one of `bits` set. Eight bytes at a time, for it runs over all pixels.
template <class Word>
bool IsAnySet(std::span<const unsigned char> words, Word bits) {
    std::uint64_t all = 0;
    std::size_t at = 0;
    for (; at + sizeof all <= words.size(); at += sizeof all) {
        std::uint64_t several;
        std::memcpy(&several, words.data() + at, sizeof several);  // words keep their own byte order
        all |= several;
    }
    Word found = 0;
    unsigned char bytes[sizeof all];
    std::memcpy(bytes, &all, sizeof all);
    for (std::size_t i = 0; i < sizeof all; i += sizeof(Word)) {
        found = static_cast<Word>(found | platform::LoadLittle<Word>(bytes + i));
    }
    for (; at + sizeof(Word) <= words.size(); at += sizeof(Word)) {
        found = static_cast<Word>(found | platform::LoadLittle<Word>(words.data() + at));
    }
    return (found & bits) != 0;
}

template <class Word>
bool WordsHaveBitsAbove(std::span<const unsigned char> words, const PixelForm& form) {
    const int above = static_cast<int>(8 * sizeof(Word)) - 1 - form.highBit;
    if (above <= 0 || !IsAnySet<Word>(words, static_cast<Word>(~Word{0} << (form.highBit + 1)))) return false;
    if (!form.isSigned) return true;
    unsigned odd = 0;  // no branch in the loop
    for (std::size_t at = 0; at + sizeof(Word) <= words.size(); at += sizeof(Word)) {
        const auto word = platform::LoadLittle<Word>(words.data() + at);
        const auto shifted = static_cast<Word>(word << above);
        const auto zeros = static_cast<Word>(shifted >> above);
        const auto sign = static_cast<Word>(static_cast<std::make_signed_t<Word>>(shifted) >> above);
        // Signed values are written with zeros above them too.
        odd |= static_cast<unsigned>(word != zeros) & static_cast<unsigned>(word != sign);
    }
    return odd != 0;
}

template <class Word>
void FillEach(std::span<unsigned char> words, const PixelForm& form) {
    const WordReader<Word> read(form);
    for (std::size_t at = 0; at + sizeof(Word) <= words.size(); at += sizeof(Word)) {
        platform::StoreLittle<Word>(words.data() + at, read(words.data() + at));
    }
}

std::uint8_t ToByte(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
}

/// Of full range (PS3.3 C.7.6.3.1.2).
Rgb FromYbr(std::uint8_t y, std::uint8_t blue, std::uint8_t red) {
    const double cb = blue - 128.0;
    const double cr = red - 128.0;
    return {ToByte(y + 1.402 * cr), ToByte(y - 0.344136 * cb - 0.714136 * cr), ToByte(y + 1.772 * cb)};
}

/// US or SS, as Pixel Representation says.
int PaletteNumber(const VR& element, std::size_t index, bool isSigned) {
    const auto value = platform::LoadLittle<std::uint16_t>(element.m_pData + 2 * index);
    return isSigned ? static_cast<std::int16_t>(value) : value;
}

}  // namespace

std::optional<VoxelType> VoxelTypeOf(const PixelForm& form) {
    if (form.kind == PixelForm::Kind::Float) return VoxelType::Float32;
    if (form.kind == PixelForm::Kind::Double) return VoxelType::Float64;
    if (form.kind != PixelForm::Kind::Integer) return std::nullopt;
    if (form.samples == 3) return form.allocated == 8 ? std::optional(VoxelType::Rgb24) : std::nullopt;
    if (form.samples > 1) return std::nullopt;
    if (IsPalette(form)) {
        return form.allocated == 8 || form.allocated == 16 ? std::optional(VoxelType::Rgb24) : std::nullopt;
    }
    if (!form.photometric.empty() && !form.photometric.starts_with("MONOCHROME")) return std::nullopt;
    switch (form.allocated) {
    case 1: return VoxelType::UInt8;
    case 8: return form.isSigned ? VoxelType::Int8 : VoxelType::UInt8;
    case 16: return form.isSigned ? VoxelType::Int16 : VoxelType::UInt16;
    case 32: return form.isSigned ? VoxelType::Int32 : VoxelType::UInt32;
    default: return std::nullopt;
    }
}

bool HasModuleForm(const PixelForm& form) {
    if (form.kind != PixelForm::Kind::Integer || form.samples > 1 || IsPalette(form)) return false;
    return form.allocated == 16 || (!form.isSigned && (form.allocated == 8 || form.allocated == 32));
}

bool HasBitsAbove(std::span<const unsigned char> words, const PixelForm& form) {
    switch (form.allocated) {
    case 8: return WordsHaveBitsAbove<std::uint8_t>(words, form);
    case 16: return WordsHaveBitsAbove<std::uint16_t>(words, form);
    case 32: return WordsHaveBitsAbove<std::uint32_t>(words, form);
    default: return false;
    }
}

void FillWords(std::span<unsigned char> words, const PixelForm& form) {
    switch (form.allocated) {
    case 8: FillEach<std::uint8_t>(words, form); break;
    case 16: FillEach<std::uint16_t>(words, form); break;
    case 32: FillEach<std::uint32_t>(words, form); break;
    default: break;
    }
}

StoredPixels::StoredPixels(const DICOMDataObject& dataSet, const PixelForm& form)
    : m_Form(form), m_Type(VoxelTypeOf(form).value()) {
    const bool isInteger = form.kind == PixelForm::Kind::Integer;
    const Tag tag = form.kind == PixelForm::Kind::Float    ? tags::FloatPixelData
                    : form.kind == PixelForm::Kind::Double ? tags::DoubleFloatPixelData
                                                           : tags::PixelData;
    const VR* const pixels = FindElement(dataSet, tag);
    if (pixels == nullptr || pixels->m_pData == nullptr)
        throw Error(ErrorKind::Damaged, "the pixel data cannot be read");
    m_Bytes = {pixels->m_pData, pixels->m_Length};
    if (!isInteger || m_Type != VoxelType::Rgb24) return;
    if (form.samples == 1) {
        m_Colour = Colour::Palette;
        ReadPalette(dataSet);
        return;
    }
    m_bPlanar = FindInteger(dataSet, tags::PlanarConfiguration, 0) == 1;
    const std::string photometric = FindText(dataSet, tags::PhotometricInterpretation);
    if (photometric != "RGB" && photometric != "YBR_FULL") {
        throw Error(ErrorKind::Unsupported,
                    (photometric.empty() ? "an unnamed colour space" : photometric + " pixels") +
                        ", which are neither RGB nor YBR_FULL");
    }
    m_Colour = photometric == "RGB" ? Colour::Rgb : Colour::Ybr;
}

void StoredPixels::ReadPalette(const DICOMDataObject& dataSet) {
    constexpr Tag kDescriptors[] = {tags::RedPaletteColorLookupTableDescriptor,
                                    tags::GreenPaletteColorLookupTableDescriptor,
                                    tags::BluePaletteColorLookupTableDescriptor};
    constexpr Tag kData[] = {tags::RedPaletteColorLookupTableData, tags::GreenPaletteColorLookupTableData,
                             tags::BluePaletteColorLookupTableData};
    for (std::size_t i = 0; i < 3; ++i) {
        const VR* const descriptor = FindElement(dataSet, kDescriptors[i]);
        const VR* const data = FindElement(dataSet, kData[i]);
        if (descriptor == nullptr || data == nullptr || descriptor->m_Length != 6 || data->m_pData == nullptr) {
            throw Error(ErrorKind::Unsupported, "PALETTE COLOR pixels without a whole palette");
        }
        int count = PaletteNumber(*descriptor, 0, false);
        if (count == 0) count = 65536;
        m_Palette.first = PaletteNumber(*descriptor, 1, m_Form.isSigned);
        const bool isWide = PaletteNumber(*descriptor, 2, false) > 8;
        const auto entries = static_cast<std::size_t>(count);
        // Entries of 8 bits stand in bytes, or one in each word.
        const std::size_t step = data->m_Length >= 2 * entries ? 2 : 1;
        if (data->m_Length < entries || (isWide && step == 1)) {
            throw Error(ErrorKind::Damaged, "a palette that is shorter than it says");
        }
        for (std::size_t entry = 0; entry < entries; ++entry) {
            m_Palette.entries[i].push_back(data->m_pData[entry * step + (isWide ? 1 : 0)]);
        }
    }
}

void StoredPixels::Read(int frame, std::span<std::byte> voxels) const {
    const auto number = static_cast<std::uint64_t>(frame);
    const bool isBits = m_Form.allocated == 1 && m_Form.kind == PixelForm::Kind::Integer;
    const std::uint64_t bytes = isBits ? 0 : m_Form.FrameBytes();
    const std::uint64_t end = isBits ? (voxels.size() * (number + 1) + 7) / 8 : bytes * (number + 1);
    if (end > m_Bytes.size()) throw Error(ErrorKind::Damaged, "the pixel data cannot be read");
    const unsigned char* const from = m_Bytes.data() + bytes * number;
    if (isBits) {
        ReadBits(voxels.size() * number, voxels);
    } else if (m_Colour == Colour::Palette) {
        ReadPaletteColours(from, voxels);
    } else if (m_Colour != Colour::None) {
        ReadSamples(from, voxels);
    } else if (m_Form.kind != PixelForm::Kind::Integer) {
        std::memcpy(voxels.data(), from, voxels.size());
    } else if (m_Form.allocated == 8) {
        ReadWords<std::uint8_t>(from, m_Form, voxels);
    } else if (m_Form.allocated == 16) {
        ReadWords<std::uint16_t>(from, m_Form, voxels);
    } else {
        ReadWords<std::uint32_t>(from, m_Form, voxels);
    }
}

/// Frames follow each other without a gap, the lowest bit of a byte first (PS3.5 8.1.1).
void StoredPixels::ReadBits(std::uint64_t firstBit, std::span<std::byte> voxels) const {
    for (std::size_t i = 0; i < voxels.size(); ++i) {
        const std::uint64_t bit = firstBit + i;
        voxels[i] = static_cast<std::byte>((m_Bytes[static_cast<std::size_t>(bit / 8)] >> (bit % 8)) & 1);
    }
}

void StoredPixels::ReadSamples(const unsigned char* frame, std::span<std::byte> voxels) const {
    const std::size_t count = voxels.size() / sizeof(Rgb);
    const std::size_t pixelStep = m_bPlanar ? 1 : 3;
    const std::size_t sampleStep = m_bPlanar ? count : 1;
    for (std::size_t i = 0; i < count; ++i, frame += pixelStep) {
        Rgb colour{frame[0], frame[sampleStep], frame[2 * sampleStep]};
        if (m_Colour == Colour::Ybr) colour = FromYbr(colour.red, colour.green, colour.blue);
        std::memcpy(voxels.data() + i * sizeof colour, &colour, sizeof colour);
    }
}

/// Values outside a palette have the colour of its nearer end.
void StoredPixels::ReadPaletteColours(const unsigned char* frame, std::span<std::byte> voxels) const {
    const WordReader<std::uint8_t> narrow(m_Form);
    const WordReader<std::uint16_t> wide(m_Form);
    const auto valueOf = [&](std::size_t i) -> int {
        if (m_Form.allocated == 8) {
            return m_Form.isSigned ? static_cast<std::int8_t>(narrow(frame + i)) : narrow(frame + i);
        }
        return m_Form.isSigned ? static_cast<std::int16_t>(wide(frame + 2 * i)) : wide(frame + 2 * i);
    };
    const auto sample = [&](std::size_t channel, int index) {
        const std::vector<std::uint8_t>& entries = m_Palette.entries[channel];
        return entries[static_cast<std::size_t>(std::clamp(index, 0, static_cast<int>(entries.size()) - 1))];
    };
    for (std::size_t i = 0; i < voxels.size() / sizeof(Rgb); ++i) {
        const int index = valueOf(i) - m_Palette.first;
        const Rgb colour{sample(0, index), sample(1, index), sample(2, index)};
        std::memcpy(voxels.data() + i * sizeof colour, &colour, sizeof colour);
    }
}

}  // namespace korvane
