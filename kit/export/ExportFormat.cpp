#include "ExportFormat.h"

#include "../core/Error.h"
#include "../study/SeriesFindings.h"
#include "../study/SeriesText.h"
#include "../study/SeriesVolume.h"
#include "../study/StoredPixels.h"
#include "VoxelGrid.h"

#include "export/CAnalyzeVolume.h"
#include "export/CCBobVolume.h"
#include "export/CRTVizVolume.h"
#include "volume/CVolume.h"

#include <algorithm>

namespace korvane {

namespace {

ValueMapping FiguresOf(const ExportMapping& done) {
    ValueMapping mapping;
    mapping.scale = done.scale;
    mapping.shift = done.shift + done.offset;
    return mapping;
}

class AnalyzeFormat : public ExportFormat {
public:
    const char* GetName() const override { return "analyze"; }
    std::unique_ptr<CVolumeExport> MakeExporter() const override { return std::make_unique<CAnalyzeVolume>(); }
    std::vector<std::string> GetExtensions() const override { return {".hdr", ".img"}; }
    bool IsLastFirst() const override { return true; }

    ValueMapping DescribeValues(const CVolumeExport& exporter, CVolume& volume) const override {
        const ExportMapping done = static_cast<const CAnalyzeVolume&>(exporter).GetMapping();
        ValueMapping mapping = FiguresOf(done);
        if ((done.reasons & ExportMapping::Halved) != 0) {
            mapping.formula = "stored / 2";
            mapping.remarks.emplace_back("unsigned data of modality XA: the file holds half of each value");
        }
        if ((done.reasons & ExportMapping::MovedToSigned) != 0) {
            mapping.formula += " - 32767";
            mapping.remarks.emplace_back(
                "unsigned data: the file holds each value less 32767, and nothing in it says so");
            if (volume.GetMax() == 65535) mapping.remarks.emplace_back("the value 65535 wraps around to -32768");
        }
        return mapping;
    }

protected:
    std::string FindFault(const SeriesVolume& series, std::size_t slices) const override {
        constexpr std::size_t kSide = 32767;
        const PixelForm& form = series.GetHeader().form;
        std::string fault = ExportFormat::FindFault(series, slices);
        const auto longest = static_cast<std::size_t>(std::max(form.columns, form.rows));
        if (fault.empty() && std::max(longest, slices) > kSide) fault = "more than 32767 voxels along a side";
        return fault;
    }
};

class BobFormat : public ExportFormat {
public:
    const char* GetName() const override { return "bob"; }
    std::unique_ptr<CVolumeExport> MakeExporter() const override { return std::make_unique<CCBobVolume>(); }
    std::vector<std::string> GetExtensions() const override { return {".header", ".ImageInfo", ".img"}; }
    bool IsRescaled() const override { return true; }
    bool KeepsExisting() const override { return true; }

    ValueMapping DescribeValues(const CVolumeExport& exporter, CVolume& volume) const override {
        const ExportMapping done = static_cast<const CCBobVolume&>(exporter).GetMapping();
        ValueMapping mapping = FiguresOf(done);
        if ((done.reasons & ExportMapping::Rescaled) != 0) {
            mapping.formula = "stored * " + ShortNumber(mapping.scale) + " + " + ShortNumber(mapping.shift);
            mapping.remarks.push_back("values are " + mapping.formula);
        }
        const double ends[] = {static_cast<double>(volume.GetMin()) * mapping.scale + mapping.shift,
                               static_cast<double>(volume.GetMax()) * mapping.scale + mapping.shift};
        if (std::min(ends[0], ends[1]) < static_cast<double>(done.lowest)) {
            mapping.remarks.emplace_back("values below 0 become 0");
        }
        if (std::max(ends[0], ends[1]) >= 32768) {
            mapping.remarks.emplace_back(done.highest > 32767
                                             ? "values above 32767 do not fit into the file's signed 16 bits"
                                             : "values above 32767 become 32767");
        }
        return mapping;
    }
};

class VoxFormat : public ExportFormat {
public:
    const char* GetName() const override { return "vox"; }
    std::unique_ptr<CVolumeExport> MakeExporter() const override { return std::make_unique<CRTVizVolume>(); }
    std::vector<std::string> GetExtensions() const override { return {".vox"}; }
    bool CallsBehindPlanes() const override { return true; }

    ValueMapping DescribeValues(const CVolumeExport& exporter, CVolume&) const override {
        const ExportMapping done = static_cast<const CRTVizVolume&>(exporter).GetMapping();
        ValueMapping mapping = FiguresOf(done);
        const double lowest = -done.shift / done.scale;
        if (lowest > 0) mapping.formula = "stored - " + ShortNumber(lowest);
        if (lowest < 0) mapping.formula = "stored + " + ShortNumber(-lowest);
        if ((done.reasons & ExportMapping::ReducedTo12) != 0) {
            mapping.formula = lowest == 0 ? "stored / 16" : "(" + mapping.formula + ") / 16";
        }
        if (done.reasons != 0) {
            mapping.remarks.push_back("values are " + mapping.formula + ", and nothing in the file says so");
        }
        return mapping;
    }
};

/// A format whose file is a header with one grid for all planes, and the voxels behind it.
class VoxelFormat : public ExportFormat {
public:
    bool IsOfModule() const override { return false; }

protected:
    std::string FindFault(const SeriesVolume& series, std::size_t) const override {
        const PixelForm& form = series.GetHeader().form;
        if (!VoxelTypeOf(form)) return DescribePixels(form);
        return series.IsGrey() || VoxelTypeOf(form) == VoxelType::Rgb24 ? "" : series.DescribeColours();
    }
};

class NiftiFormat : public VoxelFormat {
public:
    const char* GetName() const override { return "nifti"; }
    std::vector<std::string> GetExtensions() const override { return {".nii", ".nii.gz"}; }
    std::string GetExtension(bool gzip) const override { return gzip ? ".nii.gz" : ".nii"; }
    std::string MakeHeader(const VoxelGrid& grid, bool) const override { return MakeNiftiHeader(grid); }
    bool CanCompress() const override { return true; }
    bool IsHeaderCompressed() const override { return true; }
    bool HoldsRescale() const override { return true; }
    bool HoldsTilt() const override { return true; }
    bool HoldsTimes() const override { return true; }
};

class NrrdFormat : public VoxelFormat {
public:
    const char* GetName() const override { return "nrrd"; }
    std::vector<std::string> GetExtensions() const override { return {".nrrd"}; }
    std::string MakeHeader(const VoxelGrid& grid, bool gzip) const override { return MakeNrrdHeader(grid, gzip); }
    bool CanCompress() const override { return true; }
    bool HoldsTilt() const override { return true; }
    bool HoldsTimes() const override { return true; }
};

class MetaImageFormat : public VoxelFormat {
public:
    const char* GetName() const override { return "metaimage"; }
    std::vector<std::string> GetExtensions() const override { return {".mha"}; }
    std::string MakeHeader(const VoxelGrid& grid, bool) const override { return MakeMetaImageHeader(grid); }
    bool HoldsTimes() const override { return true; }
};

/// A derived series: see `DicomFiles`. Files that are there may be images of somebody's.
class DicomFormat : public VoxelFormat {
public:
    const char* GetName() const override { return "dicom"; }
    std::vector<std::string> GetExtensions() const override { return {".dcm"}; }
    bool KeepsExisting() const override { return true; }
    bool HoldsRescale() const override { return true; }
    bool HoldsTilt() const override { return true; }
    bool HoldsPlanes() const override { return true; }
};

const AnalyzeFormat kAnalyze;
const BobFormat kBob;
const VoxFormat kVox;
const NiftiFormat kNifti;
const NrrdFormat kNrrd;
const MetaImageFormat kMetaImage;
const DicomFormat kDicom;
const ExportFormat* const kFormats[] = {&kAnalyze, &kBob, &kVox, &kNifti, &kNrrd, &kMetaImage, &kDicom};

}  // namespace

const ExportFormat* ExportFormat::Find(const std::string& name) {
    const auto found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                    [&](const ExportFormat* format) { return name == format->GetName(); });
    return found != std::end(kFormats) ? *found : nullptr;
}

std::unique_ptr<CVolumeExport> ExportFormat::MakeExporter() const {
    return nullptr;
}

std::vector<std::string> ExportFormat::GetNames() {
    std::vector<std::string> names;
    for (const ExportFormat* const format : kFormats) names.emplace_back(format->GetName());
    return names;
}

std::string ExportFormat::FindFault(const SeriesVolume& series, std::size_t) const {
    const PixelForm& form = series.GetHeader().form;
    if (!series.IsGrey()) return series.DescribeColours();
    if (form.kind != PixelForm::Kind::Integer) return "floating-point pixels";
    if (form.allocated != 8 && form.allocated != 16) return std::to_string(form.allocated) + "-bit pixels";
    return form.allocated == 8 && form.isSigned ? "signed 8-bit pixels" : "";
}

void ExportFormat::Check(const SeriesVolume& series, std::size_t slices) const {
    const std::string fault = FindFault(series, slices);
    if (fault.empty()) return;
    std::string others;
    for (const ExportFormat* const format : kFormats) {
        if (format->FindFault(series, slices).empty())
            others += (others.empty() ? "" : ", ") + std::string(format->GetName());
    }
    const std::string& path = series.GetHeader().path;
    throw Error(ErrorKind::Unsupported,
                path + ": " + fault + " have no form in " + GetName() + " files, " +
                    (others.empty() ? "nor in those of any other format" : "but in those of: " + others))
        .InFile(path);
}

}  // namespace korvane
