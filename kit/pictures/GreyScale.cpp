#include "GreyScale.h"

#include "../core/Error.h"
#include "../study/PlaceRescale.h"
#include "../study/SeriesFindings.h"

#include "base/Number.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <utility>
#include <vector>

namespace korvane {

namespace {

constexpr double kWhite = 255;

std::optional<double> FindReal(const DICOMObject* holder, Tag tag, std::size_t index = 0) {
    std::vector<double> values(index + 1);
    if (holder == nullptr || platform::ScanReals(FindText(*holder, tag), values.data(), values.size()) <= index ||
        !std::isfinite(values[index])) {
        return std::nullopt;
    }
    return values[index];
}

std::vector<std::string> SplitValues(const std::string& text) {
    std::vector<std::string> values;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\\', begin), text.size());
        const std::size_t first = std::min(text.find_first_not_of(' ', begin), end);
        std::string value = text.substr(first, end - first);
        value.erase(value.find_last_not_of(' ') + 1);
        values.push_back(std::move(value));
        begin = end + 1;
    }
    return values;
}

bool IsSameWord(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

std::string Words(const Window& window) {
    return ShortNumber(window.centre) + ',' + ShortNumber(window.width);
}

std::optional<ValuesOfInterest> ReadWindow(const DICOMObject* holder, std::size_t index, const std::string& whose) {
    const std::optional<double> centre = FindReal(holder, tags::WindowCenter, index);
    const std::optional<double> width = FindReal(holder, tags::WindowWidth, index);
    if (!centre || !width || *width <= 0) return std::nullopt;
    const std::string function = FindText(*holder, tags::VOILUTFunction);
    ValuesOfInterest interest;
    const Window window{*centre, *width};
    std::string kind;
    if (function == "SIGMOID") {
        interest.function = ValuesOfInterest::Function::Sigmoid;
        kind = "sigmoid ";
    } else if (function == "LINEAR_EXACT") {
        interest.low = *centre - *width / 2;
        interest.high = *centre + *width / 2;
        kind = "exact ";
    } else if (*width >= 1) {
        interest = WindowOf(window);
    } else {
        return std::nullopt;
    }
    interest.window = window;
    interest.origin = kind + "window " + Words(window) + " of the " + whose;
    return interest;
}

std::optional<ValuesOfInterest> ReadTable(const DICOMObject* holder, std::size_t index, bool isSigned,
                                          const std::string& whose) {
    const VR* const tables = holder != nullptr ? FindElement(*holder, tags::VOILUTSequence) : nullptr;
    ValuesOfInterest interest;
    if (tables != nullptr && index < tables->GetItemCount()) {
        interest.table = ReadLookupTable(*tables->GetItem(static_cast<std::uint32_t>(index)), isSigned);
    }
    if (!interest.table) return std::nullopt;
    interest.function = ValuesOfInterest::Function::Table;
    interest.origin = "table of the " + whose;
    return interest;
}

}  // namespace

ModalityTransform ReadModality(const DICOMDataObject& dataSet, int frame, const PixelForm& form) {
    ModalityTransform modality;
    if (const DICOMObject* const item = FindItem(dataSet, tags::ModalityLUTSequence); item != nullptr) {
        modality.table = ReadLookupTable(*item, form.isSigned);
        if (modality.table) return modality;
    }
    const auto find = [&](Tag tag) {
        const DICOMObject* const holder = FindHolder(dataSet, frame, tags::PixelValueTransformationSequence, tag);
        return holder != nullptr ? FindText(*holder, tag) : std::string();
    };
    FramePlace place;
    place.slope = find(tags::RescaleSlope);
    place.intercept = find(tags::RescaleIntercept);
    modality.rescale = RescaleOf(place);
    return modality;
}

double ValuesOfInterest::operator()(double value) const {
    switch (function) {
    case Function::Sigmoid: return 1 / (1 + std::exp(-4 * (value - window.centre) / window.width));
    case Function::Table: return table->At(value) / table->GetHighest();
    case Function::Line: break;
    }
    if (value <= low) return 0;
    return value >= high ? 1 : (value - low) / (high - low);
}

ValuesOfInterest WindowOf(const Window& window) {
    ValuesOfInterest interest;
    interest.window = window;
    interest.low = window.centre - 0.5 - (window.width - 1) / 2;
    interest.high = interest.low + window.width - 1;
    interest.origin = "window " + Words(window) + " as asked for";
    return interest;
}

std::optional<ValuesOfInterest> ReadValuesOfInterest(const DICOMDataObject& dataSet, int frame, bool isSigned,
                                                     const std::string& whose) {
    const DICOMObject* const holder = FindHolderOfWindow(dataSet, frame);
    std::optional<ValuesOfInterest> interest = ReadWindow(holder, 0, whose);
    return interest ? interest : ReadTable(holder, 0, isSigned, whose);
}

ValuesOfInterest FindNamedValues(const DICOMDataObject& dataSet, int frame, bool isSigned, const std::string& whose,
                                 const std::string& name) {
    const DICOMObject* const holder = FindHolderOfWindow(dataSet, frame);
    std::string choices;
    const std::vector<std::string> windows = holder != nullptr
                                                 ? SplitValues(FindText(*holder, tags::WindowCenterWidthExplanation))
                                                 : std::vector<std::string>();
    for (std::size_t i = 0; i < windows.size(); ++i) {
        std::optional<ValuesOfInterest> interest = ReadWindow(holder, i, whose);
        if (!interest || windows[i].empty()) continue;
        if (IsSameWord(windows[i], name)) {
            interest->origin += ", " + windows[i];
            return std::move(*interest);
        }
        choices += windows[i] + "\n";
    }
    const VR* const tables = holder != nullptr ? FindElement(*holder, tags::VOILUTSequence) : nullptr;
    for (std::size_t i = 0; tables != nullptr && i < tables->GetItemCount(); ++i) {
        std::optional<ValuesOfInterest> interest = ReadTable(holder, i, isSigned, whose);
        if (!interest || interest->table->explanation.empty()) continue;
        if (IsSameWord(interest->table->explanation, name)) {
            interest->origin += ", " + interest->table->explanation;
            return std::move(*interest);
        }
        choices += interest->table->explanation + "\n";
    }
    throw Error(ErrorKind::WrongArgument, "the " + whose + " has no window or table \"" + name + "\"" +
                                              (choices.empty() ? ": it names none" : ""))
        .WithChoices(choices);
}

bool IsInverse(const DICOMObject& dataSet, const PixelForm& form) {
    return form.photometric == "MONOCHROME1" || FindText(dataSet, tags::PresentationLUTShape) == "INVERSE";
}

std::uint8_t GreyScale::operator()(double stored) const {
    const double part = std::clamp(interest(modality(stored)), 0.0, 1.0);
    const auto grey = static_cast<std::uint8_t>(std::isnan(part) ? 0 : part * kWhite + 0.5);
    return static_cast<std::uint8_t>(inverse ? kWhite - grey : grey);
}

}  // namespace korvane
