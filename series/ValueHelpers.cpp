#include "ValueHelpers.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

// Not isspace: what is a blank in a data set does not depend on the program's locale.
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

constexpr std::size_t kLongestNumber = 127;

std::string_view NumberText(const VR* vr) {
    return vr != nullptr ? vr->GetText().substr(0, kLongestNumber) : std::string_view();
}

bool CopyText(DICOMDataObject* ddo, unsigned short group, unsigned short element, char* buffer, std::size_t longest) {
    const VR* vr = ddo->GetVR(group, element);
    if (vr == nullptr) {
        return false;
    }
    const std::string_view text = vr->GetText().substr(0, longest);
    buffer[text.copy(buffer, text.size())] = '\0';
    Trim(buffer);
    return true;
}

VR* NewElement(int group, int element, std::uint32_t length) {
    return new VR(static_cast<std::uint16_t>(group), static_cast<std::uint16_t>(element), length, 1);
}

}  // namespace

long VRAtoi(VR* vr) {
    return platform::ParseInteger(NumberText(vr));
}

double VRAtof(VR* vr) {
    return platform::ParseReal(NumberText(vr));
}

char* Trim(char* s) {
    const std::size_t last = std::string_view(s).find_last_not_of(kWhiteSpace);
    if (last != std::string_view::npos) {
        s[last + 1] = '\0';
    }
    return s;
}

bool ReadDCMStringTag(DICOMDataObject* ddo, unsigned short group, unsigned short element, char* buffer) {
    return CopyText(ddo, group, element, buffer, std::string_view::npos);
}

bool ReadDCMStringTag(DICOMDataObject* ddo, unsigned short group, unsigned short element, char* buffer,
                      std::size_t size) {
    return CopyText(ddo, group, element, buffer, size - 1);
}

void USPush(DICOMDataObject& ddo, int group, int element, int value) {
    VR* vr = NewElement(group, element, 2);
    platform::StoreLittle(vr->m_pData, static_cast<std::uint16_t>(value));
    ddo.Push(vr);
}

void STRPush(DICOMDataObject& ddo, int group, int element, const char* text) {
    const std::size_t length = std::strlen(text) + 1;
    VR* vr = NewElement(group, element, static_cast<std::uint32_t>(length));
    std::memcpy(vr->m_pData, text, length);
    ddo.Push(vr);
}

void RGBToHLV(unsigned char* const rgb, double* const out) {
    constexpr double kToUnit = 0.00392156862745098;  // 1/255
    const double r = rgb[0] * kToUnit;
    const double g = rgb[1] * kToUnit;
    const double b = rgb[2] * kToUnit;
    const double highest = std::max({r, g, b});
    const double lowest = std::min({r, g, b});
    const double span = highest - lowest;
    const double lightness = (highest + lowest) * 0.5;
    out[1] = lightness;
    if (std::fabs(span) < 1e-6) {
        out[0] = 0;
        out[2] = 0;
        return;
    }
    out[2] = lightness <= 0.5 ? span / (highest + lowest) : span / (2.0 - highest - lowest);

    const double rc = (highest - r) / span;
    const double gc = (highest - g) / span;
    const double bc = (highest - b) / span;
    double hue = 0;
    if (r == highest) {
        hue = bc - gc;
    } else if (g == highest) {
        hue = 2.0 + rc - bc;
    } else {
        hue = 4.0 + gc - rc;
    }
    hue *= 60;
    if (hue < 0) {
        hue += 360;
    }
    out[0] = hue * 0.002777777777777778;  // 1/360
}
