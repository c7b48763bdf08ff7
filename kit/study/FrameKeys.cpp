#include "FrameKeys.h"

#include "../dataset/DateText.h"
#include "../vendors/VendorFacts.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <limits>
#include <string_view>

namespace korvane {

const double FrameKeys::kNone = std::numeric_limits<double>::quiet_NaN();

namespace {

/// Where a value stands: on the top level, or in an item of a functional group (and an item in that).
struct Source {
    std::size_t entry;
    Tag element;
    Tag group{};
    Tag inner{};
    std::size_t values = 1;
};

/// Later ones count where earlier ones tell nothing.
constexpr Source kSources[] = {
    {1, tags::TemporalPositionIndex, tags::FrameContentSequence},
    {1, tags::TemporalPositionIdentifier},
    {2, tags::DimensionIndexValues, tags::FrameContentSequence, {}, 6},
    {8, tags::EchoNumbers},
    {9, tags::EffectiveEchoTime, tags::MREchoSequence},
    {9, tags::EchoTime},
    {10, tags::NominalPercentageOfCardiacPhase, tags::CardiacSynchronizationSequence},
    {11, tags::NominalCardiacTriggerDelayTime, tags::CardiacSynchronizationSequence},
    {12, tags::DiffusionBValue, tags::MRDiffusionSequence},
    {12, tags::DiffusionBValue},
    {13, tags::DiffusionGradientOrientation, tags::MRDiffusionSequence, tags::DiffusionGradientDirectionSequence, 3},
    {13, tags::DiffusionGradientOrientation, {}, {}, 3},
    {16, tags::InversionTime},
    {17, tags::FrameReferenceTime},
    {18, tags::TriggerTime},
    {19, tags::FrameAcquisitionDateTime, tags::FrameContentSequence},
    {19, tags::AcquisitionTime},
    {20, tags::ContentTime},
    {21, tags::FrameAcquisitionNumber, tags::FrameContentSequence},
    {21, tags::AcquisitionNumber},
};

constexpr std::size_t kKind = 0;
constexpr double kMagnitude = 1;  // kinds, as `KindOf` counts them
constexpr double kTrace = 7;
constexpr std::size_t kBValue = 12;     // entries
constexpr std::size_t kGradientX = 13;  // and the two behind it

/// Value `index` of an element of numbers; false where there is none.
bool ReadValue(const VR& element, std::size_t index, double& value) {
    const std::size_t sizes[] = {2, 4, 8};
    const unsigned char* const bytes = element.m_pData;
    const auto at = [&](std::size_t size) {
        return bytes != nullptr && (index + 1) * size <= element.m_Length ? bytes + index * size : nullptr;
    };
    const unsigned char* p = nullptr;
    switch (element.m_TypeCode) {
    case TypeCode("US"):
        if ((p = at(sizes[0])) != nullptr) value = platform::LoadLittle<std::uint16_t>(p);
        return p != nullptr;
    case TypeCode("UL"):
        if ((p = at(sizes[1])) != nullptr) value = platform::LoadLittle<std::uint32_t>(p);
        return p != nullptr;
    case TypeCode("FL"):
        if ((p = at(sizes[1])) != nullptr) value = static_cast<double>(platform::LoadLittle<float>(p));
        return p != nullptr;
    case TypeCode("FD"):
        if ((p = at(sizes[2])) != nullptr) value = platform::LoadLittle<double>(p);
        return p != nullptr;
    default: break;
    }
    if (GetValueKind(element.m_TypeCode) != ValueKind::Text) return false;
    std::vector<double> read(index + 1);
    if (platform::ScanReals(std::string(element.GetText()), read.data(), read.size()) != read.size()) return false;
    value = read[index];
    return true;
}

/// Seconds after midnight of the first TM value, or of the time in a DT value.
bool ReadSeconds(std::string_view text, bool withDate, double& seconds) {
    constexpr std::size_t kDate = 8;
    text = text.substr(0, text.find('\\'));
    if (withDate) {
        text.remove_prefix(std::min(kDate, text.size()));
        text = text.substr(0, text.find_first_of("+-"));
    }
    const auto time = ReadClock(WithoutBlanks(text));
    if (time) seconds = std::chrono::duration<double>(*time).count();
    return time.has_value();
}

const DICOMObject* HolderIn(const DICOMObject* groups, const Source& source) {
    const DICOMObject* item = groups != nullptr ? FindItem(*groups, source.group) : nullptr;
    if (item != nullptr && source.inner != Tag{}) item = FindItem(*item, source.inner);
    return item;
}

const VR* FindSource(const DICOMObject& dataSet, const DICOMObject* own, const DICOMObject* shared,
                     const Source& source) {
    if (source.group == Tag{}) return FindElement(dataSet, source.element);
    for (const DICOMObject* const groups : {own, shared}) {
        const DICOMObject* const item = HolderIn(groups, source);
        const VR* const element = item != nullptr ? FindElement(*item, source.element) : nullptr;
        if (element != nullptr) return element;
    }
    return nullptr;
}

/// Of Image Type only the kind counts: processing steps and the like differ within a volume.
double KindOf(std::string_view word) {
    static constexpr std::string_view kKinds[][3] = {{"M", "MAGNITUDE"},
                                                     {"P", "PHASE", "PHASE MAP"},
                                                     {"R", "REAL"},
                                                     {"I", "IMAGINARY"},
                                                     {"ADC"},
                                                     {"FA"},
                                                     {"TRACEW"},
                                                     {"T1", "T1 MAP"},
                                                     {"T2", "T2 MAP"},
                                                     {"T2*", "T2_STAR MAP"},
                                                     {"VELOCITY"},
                                                     {"B0", "B0 MAP"},
                                                     {"W", "WATER"},
                                                     {"F", "FAT"},
                                                     {"IP", "IN_PHASE"},
                                                     {"OP", "OPP_PHASE", "OUT_PHASE"}};
    for (std::size_t i = 0; i < std::size(kKinds); ++i) {
        for (const std::string_view name : kKinds[i]) {
            if (!name.empty() && name == word) return static_cast<double>(i + 1);
        }
    }
    return FrameKeys::kNone;
}

/// The third value of an image or frame type, and what follows it.
double KindIn(const std::string& type) {
    std::size_t begin = 0;
    for (int index = 0; begin <= type.size(); ++index) {
        const std::size_t end = std::min(type.find('\\', begin), type.size());
        std::string_view word = std::string_view(type).substr(begin, end - begin);
        while (!word.empty() && word.back() == ' ') word.remove_suffix(1);
        if (index >= 2 && !std::isnan(KindOf(word))) return KindOf(word);
        begin = end + 1;
    }
    return FrameKeys::kNone;
}

double ReadKind(const DICOMObject& dataSet, const DICOMObject* own, const DICOMObject* shared) {
    for (const DICOMObject* const groups : {own, shared}) {
        const DICOMObject* const item = groups != nullptr ? FindItem(*groups, tags::MRImageFrameTypeSequence) : nullptr;
        if (item == nullptr) continue;
        const double kind = KindOf(FindText(*item, tags::ComplexImageComponent));
        if (!std::isnan(kind)) return kind;
        const double type = KindIn(FindText(*item, tags::FrameType));
        if (!std::isnan(type)) return type;
    }
    const double kind = KindOf(FindText(dataSet, tags::ComplexImageComponent));
    return std::isnan(kind) ? KindIn(FindText(dataSet, tags::ImageType)) : kind;
}

void AddPrivateDiffusion(const DICOMObject& dataSet, FrameKeys& keys) {
    if (FindText(dataSet, tags::Modality) != "MR") return;
    const DiffusionFacts facts = ReadPrivateDiffusion(dataSet);
    if (std::isnan(keys.values[kBValue])) keys.values[kBValue] = facts.bValue;
    // That an image is a magnitude says nothing of what it was computed from.
    if (facts.isTrace && facts.bValue > 0 && !(keys.values[kKind] > kMagnitude)) keys.values[kKind] = kTrace;
    if (facts.direction) std::copy(facts.direction->begin(), facts.direction->end(), keys.values.begin() + kGradientX);
}

}  // namespace

const std::vector<KeyCandidate>& KeyCandidates() {
    static const std::vector<KeyCandidate> candidates = {
        {"energy window", 23, 24, false, true},
        {"detector", 24, 25, false, true},
        {"phase", 25, 26, false, true},
        {"rotation", 26, 27, false, true},
        {"R-R interval", 27, 28, false, true},
        {"time slot", 28, 29, false, true},
        {"angular view", 29, 30, false, true},
        {"time slice", 30, 31, false, true},
        {"frame time", 22, 23, false, true},
        {"temporal position", 1, 2, false, true},
        {"echo number", 8, 9, false, true},
        {"cardiac phase", 10, 11, false, true},
        {"b-value", 12, 13, false, true},
        {"gradient direction", 13, 16, false, true},
        {"kind of image", 0, 1, false, true},
        {"echo time", 9, 10, false, true},
        {"inversion time", 16, 17, false, true},
        {"dimension index 1", 2, 3, false, false},
        {"dimension index 2", 3, 4, false, false},
        {"dimension index 3", 4, 5, false, false},
        {"dimension index 4", 5, 6, false, false},
        {"dimension index 5", 6, 7, false, false},
        {"dimension index 6", 7, 8, false, false},
        {"acquisition number", 21, 22, false, false},
        {"trigger delay", 11, 12, true, false},
        {"frame reference time", 17, 18, true, false},
        {"trigger time", 18, 19, true, false},
        {"acquisition time", 19, 20, true, false},
        {"content time", 20, 21, true, false},
    };
    return candidates;
}

FrameKeys ReadFrameKeys(const DICOMObject& dataSet, const DICOMObject* own, const DICOMObject* shared) {
    FrameKeys keys;
    keys.values[0] = ReadKind(dataSet, own, shared);
    for (const Source& source : kSources) {
        if (!std::isnan(keys.values[source.entry])) continue;
        const VR* const element = FindSource(dataSet, own, shared, source);
        if (element == nullptr) continue;
        const bool isClock = source.element == tags::AcquisitionTime || source.element == tags::ContentTime;
        double value = 0;
        for (std::size_t i = 0; i < source.values; ++i) {
            const bool read = isClock || source.element == tags::FrameAcquisitionDateTime
                                  ? ReadSeconds(element->GetText(), !isClock, value)
                                  : ReadValue(*element, i, value);
            if (read && std::isfinite(value)) keys.values[source.entry + i] = value;
        }
    }
    // Some name the b-value by the standard's element, and the direction in one of their own.
    const bool lacks =
        std::isnan(keys.values[kBValue]) || (keys.values[kBValue] > 0 && std::isnan(keys.values[kGradientX]));
    if (own == nullptr && lacks) AddPrivateDiffusion(dataSet, keys);
    return keys;
}

}  // namespace korvane
