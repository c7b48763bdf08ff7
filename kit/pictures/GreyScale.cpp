#include "GreyScale.h"

#include "../study/SeriesFindings.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

constexpr double kWhite = 255;

std::optional<double> FirstReal(const DICOMObject* holder, Tag tag) {
    double value = 0;
    if (holder == nullptr || platform::ScanReals(FindText(*holder, tag), &value, 1) != 1 || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::string Words(const Window& window) {
    return ShortNumber(window.centre) + ',' + ShortNumber(window.width);
}

std::optional<ValuesOfInterest> ReadWindow(const DICOMDataObject& dataSet, int frame, const std::string& whose) {
    const DICOMObject* const holder = FindHolder(dataSet, frame, tags::FrameVOILUTSequence, tags::WindowCenter);
    const std::optional<double> centre = FirstReal(holder, tags::WindowCenter);
    const std::optional<double> width = FirstReal(holder, tags::WindowWidth);
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

std::optional<ValuesOfInterest> ReadTable(const DICOMDataObject& dataSet, bool isSigned, const std::string& whose) {
    const DICOMObject* const item = FindItem(dataSet, tags::VOILUTSequence);
    ValuesOfInterest interest;
    if (item != nullptr) interest.table = ReadLookupTable(*item, isSigned);
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
        return FirstReal(FindHolder(dataSet, frame, tags::PixelValueTransformationSequence, tag), tag);
    };
    const std::optional<double> slope = find(tags::RescaleSlope);
    const std::optional<double> intercept = find(tags::RescaleIntercept);
    if (slope && intercept && *slope != 0) modality.rescale = {*slope, *intercept};
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
    std::optional<ValuesOfInterest> interest = ReadWindow(dataSet, frame, whose);
    return interest ? interest : ReadTable(dataSet, isSigned, whose);
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
