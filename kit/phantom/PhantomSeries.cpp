#include "PhantomSeries.h"

#include "../dataset/Toolkit.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <vector>

namespace korvane {

namespace {

constexpr double kFieldOfView = 240;  // millimetres, across the longer side of the image
constexpr double kExtent = 200;       // from the first plane to one behind the last
constexpr double kLargestGap = 5;
constexpr int kAir = -1000;
constexpr int kNoise = 8;  // Hounsfield units to either side
constexpr int kUnsignedOffset = 1024;

// A body of the phantom. Where two overlap, the later one in the list counts. The turn is about the z axis, in degrees.
struct Ellipsoid {
    double centre[3];
    double radius[3];
    double degrees;
    int hounsfield;
};

constexpr Ellipsoid kHead[] = {
    {{0, 0, 0}, {82, 104, 96}, 0, 40},       // skin
    {{0, 0, 0}, {76, 98, 90}, 0, 1100},      // skull
    {{0, 2, -2}, {69, 90, 82}, 0, 35},       // brain
    {{22, 0, 6}, {10, 32, 24}, -18, 5},      // ventricles
    {{-22, 0, 6}, {12, 40, 28}, 18, 5},      //
    {{0, 38, -18}, {21, 25, 20}, 0, 60},     // a denser body at the back
    {{0, -76, -34}, {20, 14, 12}, 0, -950},  // sinus
    {{58, 0, 10}, {9, 9, 9}, 0, 300},        // left
    {{0, -64, 30}, {8, 8, 8}, 0, 600},       // front
    {{6, 10, 66}, {7, 7, 7}, 0, 900},        // top
    {{-30, -30, -40}, {4, 4, 30}, 0, 150},   // a rod, and beside it
    {{-18, -34, -40}, {2, 2, 30}, 0, 1400},  // a thinner one
};
constexpr std::size_t kChanging = 5;  // the body whose density rises from volume to volume

constexpr double kUnevenGaps[] = {1, 1, 1.5, 1, 2, 1, 1.25, 1};

std::uint64_t Scramble(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15U;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31);
}

// A 128-bit number, four words with the highest first, in decimal.
std::string Decimal(std::array<std::uint32_t, 4> words) {
    std::string digits;
    bool zero = false;
    while (!zero) {
        std::uint64_t rest = 0;
        zero = true;
        for (std::uint32_t& word : words) {
            rest = (rest << 32) | word;
            word = static_cast<std::uint32_t>(rest / 10);
            rest %= 10;
            zero = zero && word == 0;
        }
        digits += static_cast<char>('0' + rest);
    }
    return {digits.rbegin(), digits.rend()};
}

// Decimal strings have at most 16 characters (PS3.5 6.2).
std::string DecimalString(double value, double step) {
    const double rounded = std::round(value / step) * step;
    std::string text = platform::FormatReal(std::round(rounded * 1e8) / 1e8 + 0.0);
    if (text.find('e') != std::string::npos) text = "0";  // an exponent: the value is far below `step`
    return text;
}

template <std::size_t kCount>
std::string DecimalStrings(const double (&values)[kCount], double step) {
    std::string text;
    for (const double value : values) text += (text.empty() ? "" : "\\") + DecimalString(value, step);
    return text;
}

void Cross(const double (&a)[3], const double (&b)[3], double (&out)[3]) {
    for (int i = 0; i < 3; ++i) out[i] = a[(i + 1) % 3] * b[(i + 2) % 3] - a[(i + 2) % 3] * b[(i + 1) % 3];
}

// Converts a vector into the frame in which the ellipsoid is the unit ball.
void ToUnit(const Ellipsoid& body, const double (&v)[3], double (&out)[3]) {
    const double angle = body.degrees * 3.14159265358979323846 / 180;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    out[0] = (c * v[0] + s * v[1]) / body.radius[0];
    out[1] = (c * v[1] - s * v[0]) / body.radius[1];
    out[2] = v[2] / body.radius[2];
}

}  // namespace

PhantomSeries::PhantomSeries(const PhantomOptions& options) : m_Options(options) {
    m_Pixel = std::round(kFieldOfView / std::max(options.columns, options.rows) * 1e6) / 1e6;
    if (options.oblique) {
        // Turned by 20 degrees about x, then 15 about z; each cosine rounded as it is written.
        const double row[3] = {0.96592583, 0.25881905, 0};
        const double col[3] = {-0.24321035, 0.90767337, 0.34202014};
        std::copy(row, row + 3, m_Row);
        std::copy(col, col + 3, m_Col);
        Cross(m_Row, m_Col, m_Normal);
    }
    m_Offsets.push_back(0);
    while (m_Offsets.size() < static_cast<std::size_t>(options.slices)) {
        const double gap = options.uneven ? kUnevenGaps[(m_Offsets.size() - 1) % std::size(kUnevenGaps)] : 1;
        m_Offsets.push_back(m_Offsets.back() + gap);
    }
    // All options go into the UIDs, so that two different series never mix in one folder.
    m_Key = Scramble(options.seed);
    for (const int part : {options.slices, options.columns, options.rows, options.volumes, int{options.oblique},
                           int{options.uneven}, int{options.isSigned}, int{options.descending}}) {
        m_Key = Scramble(m_Key ^ static_cast<std::uint64_t>(part));
    }
}

int PhantomSeries::SliceOf(int image) const {
    const int slice = image % m_Options.slices;
    return m_Options.descending ? m_Options.slices - 1 - slice : slice;
}

PhantomSeries::Place PhantomSeries::PlaceOf(int slice) const {
    const double gap = std::round(std::min(kLargestGap, kExtent / m_Options.slices) * 1000) / 1000;
    const double offset = gap * (m_Offsets[static_cast<std::size_t>(slice)] - (m_Options.slices - 1) / 2.0);
    Place place{{}, gap};
    for (int axis = 0; axis < 3; ++axis) {
        place.position[axis] = offset * m_Normal[axis] - m_Pixel * (m_Options.columns - 1) / 2.0 * m_Row[axis] -
                               m_Pixel * (m_Options.rows - 1) / 2.0 * m_Col[axis];
    }
    return place;
}

std::string PhantomSeries::Uid(std::uint32_t number) const {
    const std::uint64_t high = Scramble(m_Key ^ number);
    const std::uint64_t low = Scramble(high);
    // A UUID of version 4 (PS3.5 B.2): version and variant stand at fixed bits.
    const auto word = [](std::uint64_t value) { return static_cast<std::uint32_t>(value); };
    return "2.25." + Decimal({word(high >> 32), (word(high) & 0xFFFF0FFFU) | 0x4000U,
                              (word(low >> 32) & 0x3FFFFFFFU) | 0x80000000U, word(low)});
}

std::string PhantomSeries::FileName(int image) const {
    // Multiplying by an odd number permutes the 32-bit numbers: no name comes twice.
    std::uint32_t value = (static_cast<std::uint32_t>(image) + 1) * 2654435761U ^ static_cast<std::uint32_t>(m_Key);
    std::string name = "CT00000000.dcm";
    for (std::size_t i = 9; i >= 2; --i, value >>= 4) name[i] = "0123456789abcdef"[value & 15];
    return name;
}

std::unique_ptr<DICOMDataObject> PhantomSeries::MakeImage(int image) const {
    auto dataSet = std::make_unique<DICOMDataObject>();
    PutIdentity(*dataSet, image);
    PutGeometry(*dataSet, SliceOf(image));
    PutPixels(*dataSet, image);
    return dataSet;
}

void PhantomSeries::PutIdentity(DICOMDataObject& dataSet, int image) const {
    const std::string acquisition = std::to_string(image / m_Options.slices + 1);
    const std::pair<Tag, std::string> texts[] = {
        {tags::ImageType, "ORIGINAL\\PRIMARY\\AXIAL"},
        {tags::SOPClassUID, "1.2.840.10008.5.1.4.1.1.2"},
        {tags::SOPInstanceUID, Uid(static_cast<std::uint32_t>(image) + 100)},
        {tags::StudyDate, "20240101"},
        {tags::SeriesDate, "20240101"},
        {tags::ContentDate, "20240101"},
        {tags::StudyTime, "120000"},
        {tags::ContentTime, "120000"},
        {tags::AccessionNumber, ""},
        {tags::Modality, "CT"},
        {tags::Manufacturer, "Korvane"},
        {tags::ReferringPhysicianName, ""},
        {tags::StudyDescription, "Synthetic head"},
        {tags::SeriesDescription, "Ellipsoids"},
        {tags::PatientName, "Phantom^Ellipsoid"},
        {tags::PatientID, "PHANTOM"},
        {tags::PatientBirthDate, ""},
        {tags::PatientSex, "O"},
        {tags::KVP, "120"},
        {tags::PatientPosition, "HFS"},
        {tags::StudyInstanceUID, Uid(1)},
        {tags::SeriesInstanceUID, Uid(2)},
        {tags::StudyID, "1"},
        {tags::SeriesNumber, "1"},
        {tags::AcquisitionNumber, acquisition},
        {tags::InstanceNumber, std::to_string(image + 1)},
        {tags::FrameOfReferenceUID, Uid(3)},
        {tags::PositionReferenceIndicator, ""},
    };
    for (const auto& [tag, text] : texts) PutText(dataSet, tag, text);
}

void PhantomSeries::PutGeometry(DICOMDataObject& dataSet, int slice) const {
    const Place place = PlaceOf(slice);
    const double cosines[] = {m_Row[0], m_Row[1], m_Row[2], m_Col[0], m_Col[1], m_Col[2]};
    const double pixel[] = {m_Pixel, m_Pixel};
    double along = 0;
    for (int axis = 0; axis < 3; ++axis) along += place.position[axis] * m_Normal[axis];
    PutText(dataSet, tags::SliceThickness, DecimalString(place.gap, 1e-6));
    PutText(dataSet, tags::ImagePositionPatient, DecimalStrings(place.position, 1e-6));
    PutText(dataSet, tags::ImageOrientationPatient, DecimalStrings(cosines, 1e-8));
    PutText(dataSet, tags::SliceLocation, DecimalString(along, 1e-6));
    PutText(dataSet, tags::PixelSpacing, DecimalStrings(pixel, 1e-6));
}

void PhantomSeries::PutPixels(DICOMDataObject& dataSet, int image) const {
    const auto columns = static_cast<std::size_t>(m_Options.columns);
    PutNumber(dataSet, tags::SamplesPerPixel, 1);
    PutText(dataSet, tags::PhotometricInterpretation, "MONOCHROME2");
    PutNumber(dataSet, tags::Rows, static_cast<unsigned>(m_Options.rows));
    PutNumber(dataSet, tags::Columns, static_cast<unsigned>(m_Options.columns));
    PutNumber(dataSet, tags::BitsAllocated, 16);
    PutNumber(dataSet, tags::BitsStored, 12);
    PutNumber(dataSet, tags::HighBit, 11);
    PutNumber(dataSet, tags::PixelRepresentation, m_Options.isSigned ? 1 : 0);
    PutText(dataSet, tags::WindowCenter, "40");
    PutText(dataSet, tags::WindowWidth, "400");
    PutText(dataSet, tags::RescaleIntercept, m_Options.isSigned ? "0" : std::to_string(-kUnsignedOffset));
    PutText(dataSet, tags::RescaleSlope, "1");
    PutText(dataSet, tags::RescaleType, "HU");

    auto pixels = std::make_unique<VR>(tags::PixelData, 0U, 0);
    pixels->m_TypeCode = TypeCode("OW");
    const auto bytes = static_cast<std::uint32_t>(2 * columns * static_cast<std::size_t>(m_Options.rows));
    unsigned char* out = pixels->AllocateValue(bytes);
    if (out == nullptr) throw std::bad_alloc();

    Place place = PlaceOf(SliceOf(image));
    const int offset = m_Options.isSigned ? 0 : kUnsignedOffset;
    auto noise = static_cast<std::uint32_t>(Scramble(m_Key + static_cast<std::uint64_t>(image))) | 1U;
    std::vector<std::int16_t> line(columns);
    for (int row = 0; row < m_Options.rows; ++row) {
        Paint(line.data(), place.position, image / m_Options.slices);
        for (const std::int16_t hounsfield : line) {
            noise = noise * 1664525U + 1013904223U;
            const int value = hounsfield + offset + static_cast<int>((noise >> 16) % (2 * kNoise + 1)) - kNoise;
            platform::StoreLittle(out, static_cast<std::uint16_t>(value));
            out += 2;
        }
        for (int axis = 0; axis < 3; ++axis) place.position[axis] += m_Pixel * m_Col[axis];
    }
    dataSet.Push(pixels.release());
}

// One image row: each body covers the stretch of it where |q + t * d| <= 1 in the frame of its unit ball.
void PhantomSeries::Paint(std::int16_t* row, const double (&start)[3], int volume) const {
    std::fill_n(row, m_Options.columns, static_cast<std::int16_t>(kAir));
    for (std::size_t i = 0; i < std::size(kHead); ++i) {
        const Ellipsoid& body = kHead[i];
        double relative[3];
        double step[3];
        for (int axis = 0; axis < 3; ++axis) {
            relative[axis] = start[axis] - body.centre[axis];
            step[axis] = m_Pixel * m_Row[axis];
        }
        double q[3];
        double d[3];
        ToUnit(body, relative, q);
        ToUnit(body, step, d);
        const double a = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
        const double b = q[0] * d[0] + q[1] * d[1] + q[2] * d[2];
        const double discriminant = b * b - a * (q[0] * q[0] + q[1] * q[1] + q[2] * q[2] - 1);
        if (discriminant < 0) continue;
        const double last = m_Options.columns - 1;
        const double from = std::clamp(std::ceil((-b - std::sqrt(discriminant)) / a), 0.0, last + 1);
        const double to = std::clamp(std::floor((-b + std::sqrt(discriminant)) / a), -1.0, last);
        const int value = body.hounsfield + (i == kChanging ? 20 * volume : 0);
        if (to >= from)
            std::fill(row + static_cast<int>(from), row + static_cast<int>(to) + 1, static_cast<std::int16_t>(value));
    }
}

}  // namespace korvane
