#include "DcmOrientation.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "base/Number.h"

#include <cmath>
#include <string_view>

namespace {

struct FlippedPlane {
    VolumePlane m_Plane;
    bool m_bFlip1;
    bool m_bFlip2;
};

// By `OrthoPlane`: axial, coronal, sagittal.
struct Entry {
    char m_Row;
    char m_Column;
    FlippedPlane m_Views[3];
};

constexpr Entry kTable[] = {
    {'L', 'A', {{VP_XY, false, true}, {VP_XZ, false, false}, {VP_YZ, false, false}}},
    {'L', 'P', {{VP_XY, false, false}, {VP_XZ, false, false}, {VP_YZ, false, false}}},
    {'R', 'A', {{VP_XY, true, true}, {VP_XZ, false, false}, {VP_YZ, false, false}}},
    {'R', 'P', {{VP_XY, true, false}, {VP_XZ, false, false}, {VP_YZ, false, false}}},
    {'L', 'F', {{VP_XZ, false, true}, {VP_XY, false, false}, {VP_ZY, true, false}}},
    {'L', 'H', {{VP_XZ, true, true}, {VP_XY, false, true}, {VP_ZY, false, true}}},
    {'R', 'F', {{VP_XZ, false, false}, {VP_XY, true, true}, {VP_ZY, true, true}}},
    {'R', 'H', {{VP_XZ, false, false}, {VP_XY, true, false}, {VP_ZY, false, false}}},
    {'A', 'L', {{VP_YX, false, true}, {VP_ZX, false, false}, {VP_ZY, false, false}}},
    {'A', 'R', {{VP_YX, true, true}, {VP_ZX, false, false}, {VP_ZY, false, false}}},
    {'P', 'L', {{VP_YX, false, false}, {VP_ZX, false, false}, {VP_ZY, false, false}}},
    {'P', 'R', {{VP_YX, true, false}, {VP_ZX, false, false}, {VP_ZY, false, false}}},
    {'A', 'F', {{VP_ZX, false, false}, {VP_ZY, true, false}, {VP_XY, true, true}}},
    {'A', 'H', {{VP_ZX, false, false}, {VP_ZY, true, true}, {VP_XY, true, false}}},
    {'P', 'F', {{VP_ZX, false, false}, {VP_ZY, false, false}, {VP_XY, false, false}}},
    {'P', 'H', {{VP_ZX, false, false}, {VP_ZY, false, true}, {VP_XY, false, true}}},
    {'F', 'L', {{VP_ZX, false, false}, {VP_YX, false, false}, {VP_YZ, false, false}}},
    {'F', 'R', {{VP_ZX, false, false}, {VP_YX, false, false}, {VP_YZ, false, false}}},
    {'H', 'L', {{VP_ZX, false, false}, {VP_YX, false, false}, {VP_YZ, false, false}}},
    {'H', 'R', {{VP_ZX, false, false}, {VP_YX, false, false}, {VP_YZ, false, false}}},
    {'F', 'A', {{VP_XZ, false, false}, {VP_YZ, false, false}, {VP_YX, false, false}}},
    {'F', 'P', {{VP_XZ, false, false}, {VP_YZ, false, false}, {VP_YX, false, false}}},
    {'H', 'A', {{VP_XZ, false, false}, {VP_YZ, false, false}, {VP_YX, false, false}}},
    {'H', 'P', {{VP_XZ, false, false}, {VP_YZ, false, false}, {VP_YX, false, false}}},
};

constexpr FlippedPlane kUnknown[3] = {{VP_XY, false, false}, {VP_XZ, false, false}, {VP_YZ, false, false}};
constexpr FlippedPlane kNoText[3] = {{VP_XY, false, true}, {VP_XZ, false, false}, {VP_YZ, false, false}};

const FlippedPlane* FindViews(std::string_view orientation) {
    if (orientation.empty()) {
        return kNoText;
    }
    const std::size_t separator = orientation.find('\\');
    const std::string_view column =
        separator == std::string_view::npos ? orientation : orientation.substr(separator + 1);
    for (const Entry& entry : kTable) {
        if (orientation.starts_with(entry.m_Row) && column.starts_with(entry.m_Column)) {
            return entry.m_Views;
        }
    }
    return kUnknown;
}

// A value up to its first zero byte.
std::string_view TextOf(const VR& element) {
    const std::string_view text = element.GetText();
    return text.substr(0, text.find('\0'));
}

// The letters of one direction, that of its largest component first. Where the two largest components are equal, neither gets
// a letter and the group ends: callers know it so, hence the strict comparisons.
std::string Letters(const double* cosines) {
    const char letters[3] = {cosines[0] < 0 ? 'R' : 'L', cosines[1] < 0 ? 'A' : 'P', cosines[2] < 0 ? 'F' : 'H'};
    double size[3] = {std::fabs(cosines[0]), std::fabs(cosines[1]), std::fabs(cosines[2])};
    const auto leads = [&size](int axis) {
        return size[axis] > 0.0001 && size[axis] > size[(axis + 1) % 3] && size[axis] > size[(axis + 2) % 3];
    };
    std::string group;
    for (int round = 0; round < 3; ++round) {
        const int axis = leads(0) ? 0 : leads(1) ? 1 : 2;
        if (!leads(axis)) {
            break;
        }
        group += letters[axis];
        size[axis] = 0;
    }
    return group + '\\';
}

}  // namespace

DcmOrientation::DcmOrientation() = default;
DcmOrientation::DcmOrientation(const DcmOrientation& other) = default;
DcmOrientation& DcmOrientation::operator=(const DcmOrientation& other) = default;
DcmOrientation::~DcmOrientation() = default;

std::string DcmOrientation::GetOrientation(DICOMObject* obj) {
    if (obj == nullptr) {
        return {};
    }
    if (const VR* letters = obj->GetVR(tags::PatientOrientation)) {
        return std::string(TextOf(*letters));
    }
    const VR* element = obj->GetVR(tags::ImageOrientationPatient);
    double cosines[6];
    if (element == nullptr || platform::ScanReals(TextOf(*element), cosines, 6) != 6) {
        return {};
    }
    return Letters(cosines) + Letters(cosines + 3);
}

std::string& DcmOrientation::InvertOrientation(std::string& s) {
    static constexpr std::string_view kFrom = "AaPpFfHhLlRr\\";
    static constexpr std::string_view kTo = "PPAAHHFFRRLL\\";
    std::string inverted;
    for (const char letter : s) {
        if (const std::size_t index = kFrom.find(letter); index != std::string_view::npos) {
            inverted += kTo[index];
        }
    }
    return s = inverted;
}

VolumePlane DcmOrientation::TranslateToRawPlane(const std::string& orientation, OrthoPlane view, bool& flip1,
                                                bool& flip2) {
    static constexpr FlippedPlane kNoView = {VP_XY, false, false};
    const bool known = view >= OP_AXIAL && view <= OP_SAGITTAL;
    const FlippedPlane& found = known ? FindViews(orientation)[view] : kNoView;
    flip1 = found.m_bFlip1;
    flip2 = found.m_bFlip2;
    return found.m_Plane;
}

VolumePlane DcmOrientation::TranslateToRawPlane(DICOMObject* obj, OrthoPlane view, bool& flip1, bool& flip2) {
    return TranslateToRawPlane(GetOrientation(obj), view, flip1, flip2);
}
