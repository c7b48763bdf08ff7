#include "CCBobVolume.h"

#include "CFileWriter.h"
#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/storage/UniqueFileName.h"
#include "SampleTable.h"
#include "base/Bytes.h"
#include "base/Integer.h"
#include "base/Number.h"
#include "series/CDicomVolume.h"
#include "series/ValueHelpers.h"
#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

// Prints the lines of a text file: tab, label, value. Numbers are turned into text here rather than by `Print`, whose
// decimal point follows the program's locale.
class Lines {
public:
    explicit Lines(CFileWriter& writer) : m_Writer(writer) {}

    void Plain(const char* text) { m_Writer.Print("%s", text); }
    void Text(const char* label, const char* text) { m_Writer.Print("\t%s : %s\n", label, text); }
    void Integer(const char* label, int value) { m_Writer.Print("\t%s = %d ;\n", label, value); }
    void Centimetres(const char* label, float millimetres) {
        m_Writer.Print("\t%s = %s ;\n", label, platform::FormatFixed(millimetres * 0.1).c_str());
    }

private:
    CFileWriter& m_Writer;
};

template <std::size_t N>
void ReadText(DICOMDataObject* dataSet, tags::Tag tag, char (&text)[N]) {
    text[0] = '\0';
    if (dataSet != nullptr) {
        ReadDCMStringTag(dataSet, GroupOf(tag), ElementOf(tag), text, N);
    }
    // A value must not bring lines of its own into the header.
    std::replace_if(
        text, text + std::strlen(text), [](char c) { return c == '\n' || c == '\r'; }, ' ');
}

bool IsPatientPosition(std::string_view position) {
    static constexpr std::string_view kPositions[] = {"HFP", "HFDR", "FFDR", "FFP", "HFS", "HFDL", "FFDL", "FFS"};
    return std::find(std::begin(kPositions), std::end(kPositions), position) != std::end(kPositions);
}

// The limits of voxels in modality units. For signed volumes the upper one is that of MapValue's result, which 16 bits
// do not hold: large values wrap around.
constexpr std::int32_t kLowest = 0;

std::int32_t HighestOf(CVolume::PixelType type) {
    return type == CVolume::PT_SHORT ? std::numeric_limits<std::int32_t>::max() : 32767;
}

std::uint16_t HighByteFirst(long value) {
    return platform::SwapBytes(static_cast<std::uint16_t>(value));
}

}  // namespace

CCBobVolume::CCBobVolume()
    : m_DimUnits("cm"), m_DbName(), m_MedicalRecordNum(), m_Originator(), m_Date(), m_ScannerId(), m_PatientPosition(),
      m_Comment(), m_nOrientation(0), m_Modality() {}

// NOLINTNEXTLINE(misc-unconventional-assign-operator)
CVolumeExport& CCBobVolume::operator=(CDicomVolume& series) {
    TakeReference(series.GetVolume());
    DICOMDataObject* const first = series.GetDDOList().empty() ? nullptr : series.GetDDOList().front();
    TakeTexts(first);
    m_LUT = CModalityLUT();
    if (m_pVolume == nullptr || first == nullptr) {
        return *this;
    }
    m_LUT.SetDDO(first);
    const std::string_view modality = m_Modality;
    if (modality == "CT") {
        m_LUT.SetIntercept(m_LUT.GetIntercept() + 1024.0F);
    } else if (modality == "XA" && m_pVolume->GetType() == CVolume::PT_USHORT) {
        m_LUT.SetRescale(m_LUT.GetRescale() / 2.0F);
    }
    TakeThickness(series);
    return *this;
}

void CCBobVolume::TakeTexts(DICOMDataObject* first) {
    char date[64];
    ReadText(first, tags::SeriesDate, date);
    TakeDate(date);
    ReadText(first, tags::Modality, m_Modality);
    ReadText(first, tags::PatientName, m_DbName);
    ReadText(first, tags::PatientID, m_MedicalRecordNum);
    ReadText(first, tags::InstitutionName, m_Originator);
    ReadText(first, tags::Manufacturer, m_ScannerId);
    ReadText(first, tags::PatientPosition, m_PatientPosition);
    if (!IsPatientPosition(m_PatientPosition)) {
        std::strcpy(m_PatientPosition, "HFS");
    }
}

void CCBobVolume::TakeDate(const std::string& date) {
    const std::size_t separator = date.size() == 10 ? 1 : 0;  // characters between year, month and day
    if (date.size() != 8 + 2 * separator) {
        return;
    }
    const std::string month = date.substr(4 + separator, 2), day = date.substr(6 + 2 * separator, 2);
    const std::string turned = month + "/" + day + "/" + date.substr(0, 4);
    m_Date[turned.copy(m_Date, sizeof m_Date - 1)] = '\0';
}

void CCBobVolume::TakeThickness(CDicomVolume& series) {
    float spacing[4];
    m_pVolume->GetSpacing(spacing);
    m_Thickness.resize(static_cast<std::size_t>(m_pVolume->GetPlaneCount()));
    const std::vector<DICOMDataObject*>& slices = series.GetDDOList();
    for (std::size_t k = 0; k < std::min(slices.size(), m_Thickness.size()); ++k) {
        VR* const thickness = slices[k]->GetVR(tags::SliceThickness);
        m_Thickness[k] = thickness == nullptr ? spacing[3] : static_cast<float>(VRAtof(thickness));
    }
}

bool CCBobVolume::RunsDown() {
    const int last = m_pVolume->GetPlaneCount() - 1;
    return last > 0 && m_pVolume->GetPlane(0)->m_Org[2] > m_pVolume->GetPlane(last)->m_Org[2];
}

bool CCBobVolume::OpenFile(const std::string& dir, const std::string& name, const char* extension) {
    return m_pWriter->Open(UniqueFileName{dir, name, extension}.Make().c_str(), "wb");
}

bool CCBobVolume::Save(const char* dir, const char* name) {
    if (m_pVolume == nullptr || m_pWriter == nullptr) {
        return false;
    }
    if (!OpenFile(dir, name, "header")) {
        return false;
    }
    WriteHeader();
    m_pWriter->Close();
    if (!OpenFile(dir, name, "ImageInfo")) {
        return false;
    }
    WriteSliceInfo();
    m_pWriter->Close();
    if (!OpenFile(dir, name, "img")) {
        return false;
    }
    bool written = true;
    try {
        WriteVoxels();
    } catch (int) {
        written = false;
    }
    m_pWriter->Close();
    return written;
}

void CCBobVolume::WriteHeader() {
    int dimensions[4];
    float spacing[4];
    m_pVolume->GetDimensions(dimensions);
    m_pVolume->GetSpacing(spacing);
    const int slices = m_pVolume->GetPlaneCount();
    const int lowest = RunsDown() ? slices - 1 : 0;

    Lines lines(*m_pWriter);
    lines.Plain("\tbyte_order = 1;\n");
    lines.Integer("t_dim", dimensions[3]);
    lines.Integer("x_dim", dimensions[0]);
    lines.Integer("y_dim", dimensions[1]);
    lines.Integer("z_dim", dimensions[2]);
    lines.Plain("\tdatatype = 1 ;\n\tbitpix = 16 ;\n\tbytes_pix = 2 ;\n");
    lines.Integer("vol_max", static_cast<int>(m_LUT.MapValue(platform::Low32(m_pVolume->GetMax()))));
    lines.Integer("vol_min", std::max(0, static_cast<int>(m_LUT.MapValue(platform::Low32(m_pVolume->GetMin())))));
    lines.Centimetres("t_pixdim", spacing[3]);
    lines.Centimetres("x_pixdim", spacing[0]);
    lines.Centimetres("y_pixdim", spacing[1]);
    lines.Centimetres("z_pixdim", spacing[2]);
    lines.Plain("\tt_start = 0 ;\n\tx_start = 0 ;\n\ty_start = 0 ;\n");
    lines.Centimetres("z_start", slices == 0 ? 0.0F : m_pVolume->GetPlane(lowest)->m_Org[2]);
    lines.Plain("\tz_time = 0 ;\n\tid = 0 ;\n");
    lines.Integer("orientation", m_nOrientation);
    lines.Text("dim_units", m_DimUnits);
    lines.Plain("\tvoxel_type : \n\tdata_type : short\n\tvol_type : \n");
    lines.Text("db_name", m_DbName);
    lines.Text("medical_record_num", m_MedicalRecordNum);
    lines.Text("originator", m_Originator);
    lines.Text("date", m_Date);
    lines.Text("scanner_id", m_ScannerId);
    lines.Text("patient_position", m_PatientPosition);
    lines.Text("comment", m_Comment);
    lines.Plain(
        "\tfname_format : \n\tfname_index_start = 0 ;\n\tfname_index_delta = 0 ;\n\tbinary_header_size = 0 ;\n");
    lines.Plain("\n");
}

void CCBobVolume::WriteSliceInfo() {
    int dimensions[4];
    float spacing[4];
    m_pVolume->GetDimensions(dimensions);
    m_pVolume->GetSpacing(spacing);
    const float sign = RunsDown() ? -1.0F : 1.0F;

    Lines lines(*m_pWriter);
    for (std::size_t slice = 0; slice < static_cast<std::size_t>(m_pVolume->GetPlaneCount()); ++slice) {
        const float* const position = m_pVolume->GetPlane(static_cast<int>(slice))->m_Org;
        lines.Plain("ImageInfo = {\n");
        lines.Integer("XDim", dimensions[0]);
        lines.Integer("YDim", dimensions[1]);
        lines.Centimetres("XPixelDim", spacing[0]);
        lines.Centimetres("YPixelDim", spacing[1]);
        lines.Centimetres("SliceThickness", slice < m_Thickness.size() ? m_Thickness[slice] : 0.0F);
        lines.Centimetres("XStart", position[0]);
        lines.Centimetres("YStart", position[1]);
        lines.Centimetres("TablePosition", sign * position[2]);
        lines.Plain("\tScanType = 0;\n\n}; // ImageInfo\n\n");
    }
}

ExportMapping CCBobVolume::GetMapping() const {
    ExportMapping mapping;
    const CVolume::PixelType type = m_pVolume == nullptr ? CVolume::PT_FLOAT : m_pVolume->GetType();
    if (type != CVolume::PT_BYTE && type != CVolume::PT_SHORT && type != CVolume::PT_USHORT) {
        return mapping;
    }
    mapping.bits = 16;
    mapping.isSigned = true;
    if (type == CVolume::PT_BYTE) {
        return mapping;
    }
    mapping.scale = static_cast<double>(m_LUT.GetRescale());
    mapping.shift = static_cast<double>(m_LUT.GetIntercept());
    mapping.lowest = kLowest;
    mapping.highest = HighestOf(type);
    mapping.reasons = mapping.scale != 1 || mapping.shift != 0 ? unsigned{ExportMapping::Rescaled} : 0;
    return mapping;
}

void CCBobVolume::WriteVoxels() {
    int dimensions[4];
    m_pVolume->GetDimensions(dimensions);
    const auto width = static_cast<std::size_t>(dimensions[0]);
    const CVolume::PixelType type = m_pVolume->GetType();
    const auto lowest = static_cast<long>(kLowest);
    const auto highest = static_cast<long>(HighestOf(type));
    const auto map = [=, this](long sample) {
        return HighByteFirst(std::clamp(m_LUT.MapValue(sample), lowest, highest));
    };
    korvane_detail::SampleTable table;
    if (type == CVolume::PT_SHORT) {
        table.Fill<std::int16_t>(map);
    } else if (type != CVolume::PT_BYTE) {
        table.Fill<std::uint16_t>(map);
    }
    std::vector<std::uint16_t> row(width);
    for (int slice = 0; slice < m_pVolume->GetPlaneCount(); ++slice) {
        if (AdvanceProgress()) {
            return;
        }
        const auto* source = static_cast<const unsigned char*>(PlanePixels(slice));
        for (int y = 0; y < dimensions[1]; ++y) {
            if (type == CVolume::PT_BYTE) {
                std::transform(source, source + width, row.begin(), HighByteFirst);
                source += width;
            } else {
                table.Convert(reinterpret_cast<const std::uint16_t*>(source), row);
                source += 2 * width;
            }
            m_pWriter->Write(row.data(), static_cast<unsigned>(width), 2);
        }
    }
}
