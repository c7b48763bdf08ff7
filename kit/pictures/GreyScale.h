// From stored values to grey (PS3.3 C.11): modality, values of interest, presentation.
#pragma once

#include "../study/FrameGroups.h"
#include "../study/ImageHeader.h"
#include "../study/Volume.h"
#include "LookupTable.h"
#include "Slice.h"

#include <cstdint>
#include <optional>
#include <string>

namespace korvane {

/// The Modality LUT: a table, or slope and intercept.
struct ModalityTransform {
    Rescale rescale{};
    std::optional<LookupTable> table{};

    double operator()(double stored) const {
        return table ? table->At(stored) : stored * rescale.slope + rescale.intercept;
    }
};

/// Of one frame of a data set, from its functional groups or its top level.
ModalityTransform ReadModality(const DICOMDataObject& dataSet, int frame, const PixelForm& form);

/// The values that are shown.
struct ValuesOfInterest {
    enum class Function { Line, Sigmoid, Table };

    Function function = Function::Line;
    double low = 0;   ///< of the line: up to here black,
    double high = 1;  ///< from here, or above it where both are one, white
    Window window{};  ///< as stated
    std::optional<LookupTable> table{};
    std::string origin{};  ///< for people: "window 40,400 of the series"

    /// 0 to 1.
    double operator()(double value) const;
};

/// The window that was asked for, by PS3.3 C.11.2.1.2.1.
ValuesOfInterest WindowOf(const Window& window);
/// The first one that a frame states: a window, by its function, else a table. None where there is none that means
/// anything. `whose`: "series" or "image", for `origin`.
std::optional<ValuesOfInterest> ReadValuesOfInterest(const DICOMDataObject& dataSet, int frame, bool isSigned,
                                                     const std::string& whose);

/// The window or table whose explanation (0028,1055), (0028,3003) is `name`, in letters of any case. Throws `Error` of kind
/// `WrongArgument`, with the explanations there are as choices.
ValuesOfInterest FindNamedValues(const DICOMDataObject& dataSet, int frame, bool isSigned, const std::string& whose,
                                 const std::string& name);

/// Whether low values are bright: MONOCHROME1, or an inverse Presentation LUT Shape (2050,0020).
bool IsInverse(const DICOMObject& dataSet, const PixelForm& form);

struct GreyScale {
    ModalityTransform modality{};
    ValuesOfInterest interest{};
    bool inverse = false;

    std::uint8_t operator()(double stored) const;
};

}  // namespace korvane
