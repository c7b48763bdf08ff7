#include "LookupTable.h"

#include "../core/Error.h"

#include "base/Bytes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

namespace korvane {

namespace {

constexpr std::size_t kMostEntries = 65536;
struct ColourTags {
    const char* name;
    Tag descriptor;
    Tag data;
    Tag segments;
};

constexpr ColourTags kColours[] = {
    {"red", tags::RedPaletteColorLookupTableDescriptor, tags::RedPaletteColorLookupTableData,
     tags::SegmentedRedPaletteColorLookupTableData},
    {"green", tags::GreenPaletteColorLookupTableDescriptor, tags::GreenPaletteColorLookupTableData,
     tags::SegmentedGreenPaletteColorLookupTableData},
    {"blue", tags::BluePaletteColorLookupTableDescriptor, tags::BluePaletteColorLookupTableData,
     tags::SegmentedBluePaletteColorLookupTableData},
};

struct Descriptor {
    std::size_t entries = 0;
    double first = 0;
    int bits = 0;
};

std::optional<Descriptor> ReadDescriptor(const VR* element, bool isSigned) {
    if (element == nullptr || element->m_pData == nullptr || element->m_Length < 6) return std::nullopt;
    Descriptor descriptor;
    const auto word = [&](unsigned at) { return platform::LoadLittle<std::uint16_t>(element->m_pData + 2 * at); };
    descriptor.entries = word(0) != 0 ? word(0) : kMostEntries;  // 65536 does not fit
    descriptor.first = isSigned ? static_cast<double>(static_cast<std::int16_t>(word(1))) : word(1);
    descriptor.bits = word(2);
    return descriptor;
}

std::span<const unsigned char> BytesOf(const VR* element) {
    if (element == nullptr || element->m_pData == nullptr) return {};
    return {element->m_pData, element->m_Length};
}

/// Words, or bytes where the descriptor says 8 bits and the data is too short for words.
std::vector<std::uint16_t> ReadUnits(std::span<const unsigned char> bytes, bool areBytes) {
    if (areBytes) return {bytes.begin(), bytes.end()};
    std::vector<std::uint16_t> words(bytes.size() / 2);
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = platform::LoadLittle<std::uint16_t>(bytes.data() + 2 * i);
    return words;
}

std::vector<std::uint16_t> ReadEntries(std::span<const unsigned char> bytes, const Descriptor& descriptor) {
    const bool areBytes = descriptor.bits <= 8 && bytes.size() < 2 * descriptor.entries;
    std::vector<std::uint16_t> entries = ReadUnits(bytes, areBytes);
    if (entries.size() > descriptor.entries) entries.resize(descriptor.entries);  // the pad of an odd length
    return entries;
}

/// Segmented palette data (PS3.3 C.7.9.2), expanded as far as it is sound.
class Segments {
public:
    Segments(std::vector<std::uint16_t> units, std::size_t wanted, bool areBytes)
        : m_Units(std::move(units)), m_Wanted(wanted), m_OffsetUnit(areBytes ? 1 : 2) {}

    std::vector<std::uint16_t> Expand() {
        std::size_t at = 0;
        while (at < m_Units.size() && Expand(at, true)) {
        }
        return std::move(m_Entries);
    }

private:
    bool Expand(std::size_t& at, bool mayRefer) {
        if (m_Entries.size() >= m_Wanted || m_Units.size() - at < 2) return false;
        const unsigned code = m_Units[at];
        const std::size_t length = m_Units[at + 1];
        at += 2;
        if (length == 0) return false;  // each segment is to add something, so that the work has an end
        if (code == 0) return Copy(at, length);
        if (code == 1) return Ramp(at, length);
        return code == 2 && mayRefer && Refer(at, length);
    }

    bool Copy(std::size_t& at, std::size_t length) {
        const bool whole = length <= m_Units.size() - at;
        if (!whole) length = m_Units.size() - at;
        for (std::size_t i = 0; i < length; ++i) Push(m_Units[at + i]);
        at += length;
        return whole;
    }

    /// From the last entry, which is not repeated, to a value.
    bool Ramp(std::size_t& at, std::size_t length) {
        if (at >= m_Units.size() || m_Entries.empty()) return false;
        const double from = m_Entries.back();
        const double step = (m_Units[at++] - from) / static_cast<double>(std::max<std::size_t>(length, 1));
        for (std::size_t i = 1; i <= length; ++i)
            Push(static_cast<std::uint16_t>(std::lround(from + step * static_cast<double>(i))));
        return true;
    }

    /// Earlier segments again, which hold no references themselves.
    bool Refer(std::size_t& at, std::size_t count) {
        if (m_Units.size() - at < 2) return false;
        const std::size_t unitBits = m_OffsetUnit * 8;
        std::size_t from = (m_Units[at] | static_cast<std::size_t>(m_Units[at + 1]) << unitBits) / m_OffsetUnit;
        at += 2;
        if (from >= m_Units.size()) return false;
        for (std::size_t i = 0; i < count; ++i) {
            if (!Expand(from, false)) return false;
        }
        return true;
    }

    void Push(std::uint16_t value) {
        if (m_Entries.size() < m_Wanted) m_Entries.push_back(value);
    }

    std::vector<std::uint16_t> m_Units;
    std::vector<std::uint16_t> m_Entries;
    std::size_t m_Wanted;
    std::size_t m_OffsetUnit;
};

}  // namespace

std::uint16_t LookupTable::At(double value) const {
    const double index = std::floor(value - first + 0.5);
    const auto last = static_cast<double>(entries.size() - 1);
    return entries[static_cast<std::size_t>(index > 0 ? std::min(index, last) : 0)];
}

std::optional<LookupTable> ReadLookupTable(const DICOMObject& item, bool isSigned) {
    const std::optional<Descriptor> descriptor = ReadDescriptor(FindElement(item, tags::LUTDescriptor), isSigned);
    if (!descriptor) return std::nullopt;
    LookupTable table;
    table.first = descriptor->first;
    table.bits = std::clamp(descriptor->bits, 8, 16);
    table.entries = ReadEntries(BytesOf(FindElement(item, tags::LUTData)), *descriptor);
    table.explanation = FindText(item, tags::LUTExplanation);
    if (table.entries.size() < descriptor->entries) return std::nullopt;
    return table;
}

Palette::Palette(const DICOMObject& dataSet, bool isSigned) {
    for (unsigned colour = 0; colour < 3; ++colour) ReadTable(dataSet, colour, isSigned);
    std::uint16_t highest = 0;
    int bits = 0;
    for (const LookupTable& table : m_Tables) {
        highest = std::max(highest, *std::max_element(table.entries.begin(), table.entries.end()));
        bits = std::max(bits, table.bits);
    }
    // Entries that say one width and have the other are common: what they hold counts.
    const bool wide = highest > 255;
    if (bits > 8 && !wide && highest > 0) m_Remark = "the palette says " + std::to_string(bits) + " bits and has 8";
    if (bits <= 8 && wide) m_Remark = "the palette says 8 bits and has 16";
    for (LookupTable& table : m_Tables) {
        table.bits = 8;
        for (std::uint16_t& entry : table.entries) entry = wide ? entry >> 8 : entry;
    }
}

void Palette::ReadTable(const DICOMObject& dataSet, unsigned colour, bool isSigned) {
    const ColourTags& names = kColours[colour];
    const std::optional<Descriptor> descriptor = ReadDescriptor(FindElement(dataSet, names.descriptor), isSigned);
    const auto bytes = BytesOf(FindElement(dataSet, names.data));
    const auto segments = BytesOf(FindElement(dataSet, names.segments));
    LookupTable& table = m_Tables[colour];
    if (descriptor) {
        table.first = descriptor->first;
        table.bits = descriptor->bits;
        const bool areBytes = descriptor->bits <= 8;
        table.entries = !bytes.empty()
                            ? ReadEntries(bytes, *descriptor)
                            : Segments(ReadUnits(segments, areBytes), descriptor->entries, areBytes).Expand();
    }
    if (table.entries.empty()) {
        throw Error(ErrorKind::Damaged, std::string("the palette has no ") + names.name);
    }
    if (table.entries.size() < descriptor->entries) {
        m_Remark = "the palette's " + std::string(names.name) + " ends after " + std::to_string(table.entries.size()) +
                   " of " + std::to_string(descriptor->entries) + " entries; the last one stands for the others";
    }
}

std::array<std::uint8_t, 3> Palette::At(double value) const {
    return {static_cast<std::uint8_t>(m_Tables[0].At(value)), static_cast<std::uint8_t>(m_Tables[1].At(value)),
            static_cast<std::uint8_t>(m_Tables[2].At(value))};
}

}  // namespace korvane
