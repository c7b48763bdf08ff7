#include "ColourScale.h"

#include "../core/Error.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace korvane {

namespace {

std::uint8_t Byte(double value) {
    return static_cast<std::uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
}

/// Y from 0 to 255, Cb and Cr about 128.
void FromYbr(double y, double cb, double cr, std::uint8_t* colour) {
    colour[0] = Byte(y + 1.402 * cr);
    colour[1] = Byte(y - 0.344136 * cb - 0.714136 * cr);
    colour[2] = Byte(y + 1.772 * cb);
}

}  // namespace

ColourScale::ColourScale(const ImageFile& file) {
    const PixelForm& form = file.GetForm();
    const std::string& photometric = form.photometric;
    std::string what;
    const std::string name =
        photometric.empty() ? "pixels without a photometric interpretation" : photometric + " pixels";
    if (form.kind != PixelForm::Kind::Integer) {
        what = "floating-point " + name + " cannot be drawn";
    } else if (photometric == "PALETTE COLOR" && form.samples == 1) {
        m_Palette.emplace(file.GetDataSet(), form.isSigned);
        return;
    } else if (form.samples != 3 || form.isSigned) {
        what = (form.isSigned ? "signed " : "") + name + " of " + std::to_string(form.samples) +
               (form.samples == 1 ? " sample" : " samples") + " cannot be drawn";
    } else if (photometric == "RGB") {
        m_Space = Space::Rgb;
    } else if (photometric == "YBR_FULL" || photometric == "YBR_FULL_422") {
        m_Space = Space::Full;
    } else if (photometric == "YBR_PARTIAL_422") {
        m_Space = Space::Partial;
    } else {
        what = name + " cannot be drawn";
    }
    if (!what.empty()) {
        throw Error(ErrorKind::Unsupported, file.GetPath() + ": " + what).InFile(file.GetPath());
    }
    m_Scale = 255 / (std::ldexp(1.0, form.stored) - 1);
}

void ColourScale::Map(const std::vector<double>& row, std::uint8_t* colours) const {
    if (m_Palette) {
        for (const double value : row) colours = std::ranges::copy(m_Palette->At(value), colours).out;
        return;
    }
    for (std::size_t i = 0; i + 3 <= row.size(); i += 3, colours += 3) {
        const double first = row[i] * m_Scale;
        const double second = row[i + 1] * m_Scale;
        const double third = row[i + 2] * m_Scale;
        switch (m_Space) {
        case Space::Rgb:
            colours[0] = Byte(first);
            colours[1] = Byte(second);
            colours[2] = Byte(third);
            break;
        case Space::Full: FromYbr(first, second - 128, third - 128, colours); break;
        case Space::Partial:  // 16 to 235, and 16 to 240
            FromYbr((first - 16) * 255 / 219, (second - 128) * 255 / 224, (third - 128) * 255 / 224, colours);
            break;
        }
    }
}

}  // namespace korvane
