#include "Series.h"

#include <Korvane/Dicom.h>

#include <random>
#include <stdexcept>
#include <string_view>

namespace {

struct TextRow {
    tags::Tag tag;
    std::uint16_t typeCode;
    const char* text;
};

// Elements that scanners write into each slice, as many as it takes to make reading cost what it does there.
constexpr TextRow kTexts[] = {
    {tags::SpecificCharacterSet, TypeCode("CS"), "ISO_IR 100"},
    {tags::ImageType, TypeCode("CS"), "ORIGINAL\\PRIMARY\\AXIAL\\CT_SOM5 SPI"},
    {tags::InstanceCreationDate, TypeCode("DA"), "20240229"},
    {tags::InstanceCreationTime, TypeCode("TM"), "101502.468000"},
    {tags::SOPClassUID, TypeCode("UI"), "1.2.840.10008.5.1.4.1.1.2"},
    {tags::StudyDate, TypeCode("DA"), "20240229"},
    {tags::SeriesDate, TypeCode("DA"), "20240229"},
    {tags::AcquisitionDate, TypeCode("DA"), "20240229"},
    {tags::ContentDate, TypeCode("DA"), "20240229"},
    {tags::StudyTime, TypeCode("TM"), "100804.750000"},
    {tags::SeriesTime, TypeCode("TM"), "101012.500000"},
    {tags::AcquisitionTime, TypeCode("TM"), "101101.125000"},
    {tags::ContentTime, TypeCode("TM"), "101101.125000"},
    {tags::AccessionNumber, TypeCode("SH"), "A-2024-004711"},
    {tags::Modality, TypeCode("CS"), "CT"},
    {tags::Manufacturer, TypeCode("LO"), "Phantom Works"},
    {tags::InstitutionName, TypeCode("LO"), "Institute of Synthetic Radiology"},
    {tags::InstitutionAddress, TypeCode("ST"), "1 Phantom Street, 00000 Nowhere"},
    {tags::ReferringPhysicianName, TypeCode("PN"), "Referring^Physician"},
    {tags::StationName, TypeCode("SH"), "CT01"},
    {tags::StudyDescription, TypeCode("LO"), "Thorax and abdomen with contrast"},
    {tags::SeriesDescription, TypeCode("LO"), "Thorax 1.0 B30f"},
    {tags::InstitutionalDepartmentName, TypeCode("LO"), "Radiology"},
    {tags::OperatorsName, TypeCode("PN"), "Operator^One"},
    {tags::ManufacturerModelName, TypeCode("LO"), "Phantom 64"},
    {tags::PatientName, TypeCode("PN"), "Phantom^Benchmark"},
    {tags::PatientID, TypeCode("LO"), "BENCH-0001"},
    {tags::PatientBirthDate, TypeCode("DA"), "19700101"},
    {tags::PatientSex, TypeCode("CS"), "O"},
    {tags::PatientAge, TypeCode("AS"), "054Y"},
    {tags::PatientWeight, TypeCode("DS"), "70"},
    {tags::PatientComments, TypeCode("LT"), "Made by the benchmark; stands for nobody."},
    {tags::ContrastBolusAgent, TypeCode("LO"), "APPLIED"},
    {tags::BodyPartExamined, TypeCode("CS"), "CHEST"},
    {tags::SliceThickness, TypeCode("DS"), "1"},
    {tags::KVP, TypeCode("DS"), "120"},
    {tags::DataCollectionDiameter, TypeCode("DS"), "500"},
    {tags::DeviceSerialNumber, TypeCode("LO"), "55555"},
    {tags::SoftwareVersions, TypeCode("LO"), "synthetic 1.0"},
    {tags::ProtocolName, TypeCode("LO"), "ThoraxRoutine"},
    {tags::ReconstructionDiameter, TypeCode("DS"), "358"},
    {tags::DistanceSourceToDetector, TypeCode("DS"), "1040"},
    {tags::DistanceSourceToPatient, TypeCode("DS"), "570"},
    {tags::GantryDetectorTilt, TypeCode("DS"), "0"},
    {tags::TableHeight, TypeCode("DS"), "143"},
    {tags::RotationDirection, TypeCode("CS"), "CW"},
    {tags::ExposureTime, TypeCode("IS"), "500"},
    {tags::XRayTubeCurrent, TypeCode("IS"), "216"},
    {tags::Exposure, TypeCode("IS"), "108"},
    {tags::FilterType, TypeCode("SH"), "0"},
    {tags::GeneratorPower, TypeCode("IS"), "26"},
    {tags::FocalSpots, TypeCode("DS"), "1.2"},
    {tags::ConvolutionKernel, TypeCode("SH"), "B30f"},
    {tags::PatientPosition, TypeCode("CS"), "FFS"},
    {tags::StudyInstanceUID, TypeCode("UI"), "2.25.281474976710656.20240229.1"},
    {tags::SeriesInstanceUID, TypeCode("UI"), "2.25.281474976710656.20240229.1.2"},
    {tags::StudyID, TypeCode("SH"), "1"},
    {tags::SeriesNumber, TypeCode("IS"), "2"},
    {tags::AcquisitionNumber, TypeCode("IS"), "2"},
    {tags::ImageOrientationPatient, TypeCode("DS"), "1\\0\\0\\0\\1\\0"},
    {tags::FrameOfReferenceUID, TypeCode("UI"), "2.25.281474976710656.20240229.1.3"},
    {tags::PositionReferenceIndicator, TypeCode("LO"), ""},
    {tags::PhotometricInterpretation, TypeCode("CS"), "MONOCHROME2"},
    {tags::PixelSpacing, TypeCode("DS"), "0.69921875\\0.69921875"},
    {tags::WindowCenter, TypeCode("DS"), "40\\-600"},
    {tags::WindowWidth, TypeCode("DS"), "300\\1500"},
    {tags::RescaleIntercept, TypeCode("DS"), "-1024"},
    {tags::RescaleSlope, TypeCode("DS"), "1"},
    {tags::WindowCenterWidthExplanation, TypeCode("LO"), "WINDOW1\\WINDOW2"},
    {tags::PerformedProcedureStepStartDate, TypeCode("DA"), "20240229"},
    {tags::PerformedProcedureStepStartTime, TypeCode("TM"), "100804.750000"},
    {tags::PerformedProcedureStepID, TypeCode("SH"), "12345"},
};

struct WordRow {
    tags::Tag tag;
    std::uint16_t value;
};

constexpr WordRow kWords[] = {
    {tags::SamplesPerPixel, 1}, {tags::Rows, Series::kSide}, {tags::Columns, Series::kSide}, {tags::BitsAllocated, 16},
    {tags::BitsStored, 12},     {tags::HighBit, 11},         {tags::PixelRepresentation, 0},
};

void PutText(DICOMObject& dataSet, const TextRow& row) {
    ReplaceText(dataSet, row.tag, row.typeCode, row.text);
}

// A sequence of one coded entry (PS3.3 8.8).
void PutCode(DICOMObject& dataSet, tags::Tag tag) {
    auto* const sequence = new VR(tag, 0, 0);
    sequence->m_TypeCode = TypeCode("SQ");
    dataSet.Push(sequence);
    auto* const item = new DICOMDataObject;
    PutText(*item, {tags::CodeValue, TypeCode("SH"), "CTCHEST"});
    PutText(*item, {tags::CodingSchemeDesignator, TypeCode("SH"), "99BENCH"});
    PutText(*item, {tags::CodeMeaning, TypeCode("LO"), "CT of the chest"});
    dataSet.PushItemToLast(item);
}

// Draws a disc that moves from slice to slice, with noise over it.
void PutPixels(DICOMObject& dataSet, int slice) {
    auto* const pixels = new VR(tags::PixelData, Series::kSlicePixels * sizeof(std::uint16_t), 1);
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
        ReplaceValue(dataSet, row.tag, TypeCode("US"), bytes, sizeof bytes);
    }
    const std::string number = std::to_string(slice + 1);
    // Positions fall from slice to slice: assembly negates z and sorts by it, so the planes come in the order of the files.
    const std::string z = std::to_string(-slice);
    PutText(dataSet, {tags::SOPInstanceUID, TypeCode("UI"), ("2.25.281474976710656.20240229.1.2." + number).c_str()});
    PutText(dataSet, {tags::InstanceNumber, TypeCode("IS"), number.c_str()});
    PutText(dataSet, {tags::ImagePositionPatient, TypeCode("DS"), ("-179\\-179\\" + z).c_str()});
    PutText(dataSet, {tags::SliceLocation, TypeCode("DS"), z.c_str()});
    PutCode(dataSet, tags::ProcedureCodeSequence);
    PutCode(dataSet, tags::RequestedProcedureCodeSequence);
    PutCode(dataSet, tags::ScheduledProtocolCodeSequence);
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
