#include "Series.h"

#include <Korvane/Dicom.h>

#include <random>
#include <stdexcept>
#include <string_view>

namespace {

struct TextRow {
    std::uint16_t group;
    std::uint16_t element;
    std::uint16_t typeCode;
    const char* text;
};

// What a scanner writes into each slice, as far as reading it costs time.
constexpr TextRow kTexts[] = {
    {0x0008, 0x0005, TypeCode("CS"), "ISO_IR 100"},
    {0x0008, 0x0008, TypeCode("CS"), "ORIGINAL\\PRIMARY\\AXIAL\\CT_SOM5 SPI"},
    {0x0008, 0x0012, TypeCode("DA"), "20240229"},
    {0x0008, 0x0013, TypeCode("TM"), "101502.468000"},
    {0x0008, 0x0016, TypeCode("UI"), "1.2.840.10008.5.1.4.1.1.2"},
    {0x0008, 0x0020, TypeCode("DA"), "20240229"},
    {0x0008, 0x0021, TypeCode("DA"), "20240229"},
    {0x0008, 0x0022, TypeCode("DA"), "20240229"},
    {0x0008, 0x0023, TypeCode("DA"), "20240229"},
    {0x0008, 0x0030, TypeCode("TM"), "100804.750000"},
    {0x0008, 0x0031, TypeCode("TM"), "101012.500000"},
    {0x0008, 0x0032, TypeCode("TM"), "101101.125000"},
    {0x0008, 0x0033, TypeCode("TM"), "101101.125000"},
    {0x0008, 0x0050, TypeCode("SH"), "A-2024-004711"},
    {0x0008, 0x0060, TypeCode("CS"), "CT"},
    {0x0008, 0x0070, TypeCode("LO"), "Phantom Works"},
    {0x0008, 0x0080, TypeCode("LO"), "Institute of Synthetic Radiology"},
    {0x0008, 0x0081, TypeCode("ST"), "1 Phantom Street, 00000 Nowhere"},
    {0x0008, 0x0090, TypeCode("PN"), "Referring^Physician"},
    {0x0008, 0x1010, TypeCode("SH"), "CT01"},
    {0x0008, 0x1030, TypeCode("LO"), "Thorax and abdomen with contrast"},
    {0x0008, 0x103E, TypeCode("LO"), "Thorax 1.0 B30f"},
    {0x0008, 0x1040, TypeCode("LO"), "Radiology"},
    {0x0008, 0x1070, TypeCode("PN"), "Operator^One"},
    {0x0008, 0x1090, TypeCode("LO"), "Phantom 64"},
    {0x0010, 0x0010, TypeCode("PN"), "Phantom^Benchmark"},
    {0x0010, 0x0020, TypeCode("LO"), "BENCH-0001"},
    {0x0010, 0x0030, TypeCode("DA"), "19700101"},
    {0x0010, 0x0040, TypeCode("CS"), "O"},
    {0x0010, 0x1010, TypeCode("AS"), "054Y"},
    {0x0010, 0x1030, TypeCode("DS"), "70"},
    {0x0010, 0x4000, TypeCode("LT"), "Made by the benchmark; stands for nobody."},
    {0x0018, 0x0010, TypeCode("LO"), "APPLIED"},
    {0x0018, 0x0015, TypeCode("CS"), "CHEST"},
    {0x0018, 0x0050, TypeCode("DS"), "1"},
    {0x0018, 0x0060, TypeCode("DS"), "120"},
    {0x0018, 0x0090, TypeCode("DS"), "500"},
    {0x0018, 0x1000, TypeCode("LO"), "55555"},
    {0x0018, 0x1020, TypeCode("LO"), "synthetic 1.0"},
    {0x0018, 0x1030, TypeCode("LO"), "ThoraxRoutine"},
    {0x0018, 0x1100, TypeCode("DS"), "358"},
    {0x0018, 0x1110, TypeCode("DS"), "1040"},
    {0x0018, 0x1111, TypeCode("DS"), "570"},
    {0x0018, 0x1120, TypeCode("DS"), "0"},
    {0x0018, 0x1130, TypeCode("DS"), "143"},
    {0x0018, 0x1140, TypeCode("CS"), "CW"},
    {0x0018, 0x1150, TypeCode("IS"), "500"},
    {0x0018, 0x1151, TypeCode("IS"), "216"},
    {0x0018, 0x1152, TypeCode("IS"), "108"},
    {0x0018, 0x1160, TypeCode("SH"), "0"},
    {0x0018, 0x1170, TypeCode("IS"), "26"},
    {0x0018, 0x1190, TypeCode("DS"), "1.2"},
    {0x0018, 0x1210, TypeCode("SH"), "B30f"},
    {0x0018, 0x5100, TypeCode("CS"), "FFS"},
    {0x0020, 0x000D, TypeCode("UI"), "2.25.281474976710656.20240229.1"},
    {0x0020, 0x000E, TypeCode("UI"), "2.25.281474976710656.20240229.1.2"},
    {0x0020, 0x0010, TypeCode("SH"), "1"},
    {0x0020, 0x0011, TypeCode("IS"), "2"},
    {0x0020, 0x0012, TypeCode("IS"), "2"},
    {0x0020, 0x0037, TypeCode("DS"), "1\\0\\0\\0\\1\\0"},
    {0x0020, 0x0052, TypeCode("UI"), "2.25.281474976710656.20240229.1.3"},
    {0x0020, 0x1040, TypeCode("LO"), ""},
    {0x0028, 0x0004, TypeCode("CS"), "MONOCHROME2"},
    {0x0028, 0x0030, TypeCode("DS"), "0.69921875\\0.69921875"},
    {0x0028, 0x1050, TypeCode("DS"), "40\\-600"},
    {0x0028, 0x1051, TypeCode("DS"), "300\\1500"},
    {0x0028, 0x1052, TypeCode("DS"), "-1024"},
    {0x0028, 0x1053, TypeCode("DS"), "1"},
    {0x0028, 0x1055, TypeCode("LO"), "WINDOW1\\WINDOW2"},
    {0x0040, 0x0244, TypeCode("DA"), "20240229"},
    {0x0040, 0x0245, TypeCode("TM"), "100804.750000"},
    {0x0040, 0x0253, TypeCode("SH"), "12345"},
};

struct WordRow {
    std::uint16_t element;
    std::uint16_t value;
};

constexpr WordRow kWords[] = {
    {0x0002, 1}, {0x0010, Series::kSide}, {0x0011, Series::kSide}, {0x0100, 16}, {0x0101, 12}, {0x0102, 11},
    {0x0103, 0},
};

void PutText(DICOMObject& dataSet, const TextRow& row) {
    ReplaceText(dataSet, row.group, row.element, row.typeCode, row.text);
}

/// A sequence of one coded entry (PS3.3 8.8).
void PutCode(DICOMObject& dataSet, std::uint16_t group, std::uint16_t element) {
    auto* const sequence = new VR(group, element, 0, 0);
    sequence->m_TypeCode = TypeCode("SQ");
    dataSet.Push(sequence);
    auto* const item = new DICOMDataObject;
    PutText(*item, {0x0008, 0x0100, TypeCode("SH"), "CTCHEST"});
    PutText(*item, {0x0008, 0x0102, TypeCode("SH"), "99BENCH"});
    PutText(*item, {0x0008, 0x0104, TypeCode("LO"), "CT of the chest"});
    dataSet.PushItemToLast(item);
}

/// A disc that moves from slice to slice, and noise over it.
void PutPixels(DICOMObject& dataSet, int slice) {
    auto* const pixels = new VR(0x7FE0, 0x0010, Series::kSlicePixels * sizeof(std::uint16_t), 1);
    pixels->m_TypeCode = TypeCode("OW");
    std::minstd_rand noise(static_cast<unsigned>(slice) + 1);
    unsigned char* out = pixels->m_pData;
    for (int y = 0; y < Series::kSide; ++y) {
        for (int x = 0; x < Series::kSide; ++x) {
            const int dx = x - Series::kSide / 2;
            const int dy = y - Series::kSide / 4 - slice / 2;
            const auto value = (dx * dx + dy * dy < 150 * 150 ? 1000 : 0) + noise() % 64;
            *out++ = static_cast<unsigned char>(value);
            *out++ = static_cast<unsigned char>(value >> 8);
        }
    }
    dataSet.Push(pixels);
}

void PutSlice(DICOMObject& dataSet, int slice) {
    for (const TextRow& row : kTexts) PutText(dataSet, row);
    for (const WordRow& row : kWords) {
        const unsigned char bytes[2] = {static_cast<unsigned char>(row.value),
                                        static_cast<unsigned char>(row.value >> 8)};
        ReplaceValue(dataSet, 0x0028, row.element, TypeCode("US"), bytes, sizeof bytes);
    }
    const std::string number = std::to_string(slice + 1);
    // Falling, so that the planes, whose z is negated, come in the order of the files.
    const std::string z = std::to_string(-slice);
    PutText(dataSet, {0x0008, 0x0018, TypeCode("UI"), ("2.25.281474976710656.20240229.1.2." + number).c_str()});
    PutText(dataSet, {0x0020, 0x0013, TypeCode("IS"), number.c_str()});
    PutText(dataSet, {0x0020, 0x0032, TypeCode("DS"), ("-179\\-179\\" + z).c_str()});
    PutText(dataSet, {0x0020, 0x1041, TypeCode("DS"), z.c_str()});
    PutCode(dataSet, 0x0008, 0x1032);
    PutCode(dataSet, 0x0032, 0x1064);
    PutCode(dataSet, 0x0040, 0x0008);
    PutPixels(dataSet, slice);
}

}  // namespace

Series::Series() {
    std::random_device random;
    m_Folder = std::filesystem::temp_directory_path() / ("korvane-bench-" + std::to_string(random()));
    std::filesystem::create_directory(m_Folder);
    for (int slice = 0; slice < kSlices; ++slice) {
        DICOMDataObject dataSet;
        PutSlice(dataSet, slice);
        m_Files.push_back((m_Folder / ("slice" + std::to_string(1000 + slice) + ".dcm")).string());
        if (SaveDICOMFile(m_Files.back().c_str(), 3, &dataSet) == 0) {
            throw std::runtime_error("cannot write " + m_Files.back());
        }
        m_FileBytes += std::filesystem::file_size(m_Files.back());
    }
}

Series::~Series() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Folder, ignored);
}
