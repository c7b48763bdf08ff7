#include "ExportJob.h"

#include "../core/Error.h"
#include "../study/SeriesFindings.h"
#include "DicomFiles.h"
#include "ExportReport.h"
#include "PlaneFeeder.h"
#include "Preview.h"
#include "VoxelFile.h"

#include "base/Number.h"
#include "export/CFileWriter.h"
#include "export/CVolumeExport.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <utility>

namespace korvane {

namespace {

const ExportFormat& FindFormat(const std::string& name) {
    if (const ExportFormat* const format = ExportFormat::Find(name)) return *format;
    std::string names;
    for (const std::string& known : ExportFormat::GetNames()) names += (names.empty() ? "" : ", ") + known;
    throw Error(ErrorKind::WrongArgument, "there is no format \"" + name + "\", but: " + names);
}

/// What a file does not say about its values.
ValueMapping DescribeValues(const ExportFormat& format, const CVolumeExport& exporter, SeriesVolume& series,
                            const std::vector<SliceRef>& slices) {
    ValueMapping mapping = format.DescribeValues(exporter, series.GetVolume());
    const FramePlace& place = series.GetPlace();
    const bool differs = std::any_of(slices.begin(), slices.end(), [&](const SliceRef& slice) {
        const FramePlace& other = series.GetFound().PlaceOf(slice);
        return other.slope != place.slope || other.intercept != place.intercept;
    });
    if (differs && series.GetScaleError()) {
        mapping.remarks.push_back("slices have rescales of their own: the file has one slope for all, " +
                                  series.GetPlace().slope + ", and values are rounded by at most " +
                                  platform::FormatReal(*series.GetScaleError()));
    } else if (differs) {
        mapping.remarks.emplace_back(
            format.IsRescaled() ? "each slice has a rescale of its own: that of the file's first was used for all"
                                : "values are as stored, and each slice has a rescale of its own");
    } else if (!format.IsRescaled() && !place.slope.empty() && !place.intercept.empty() &&
               (place.slope != "1" || place.intercept != "0")) {
        const char* const form = mapping.formula == "stored" ? "values are as stored: " : "";
        mapping.remarks.push_back(form + ("the real value is stored * " + place.slope) + " + " + place.intercept);
    }
    if (series.GetHeader().form.photometric == "MONOCHROME1") {
        mapping.remarks.emplace_back("MONOCHROME1: low values are bright");
    }
    return mapping;
}

/// A name may be given with the format's extension, which is taken off; one that ends in .gz asks for compression.
void TakeExtension(Destination& destination, const ExportFormat& format, bool& compress) {
    std::vector<std::string> extensions = format.GetExtensions();
    std::reverse(extensions.begin(), extensions.end());  // ".nii.gz" before ".nii"
    for (const std::string& extension : extensions) {
        if (destination.name.size() <= extension.size() || !destination.name.ends_with(extension)) continue;
        destination.name.resize(destination.name.size() - extension.size());
        if (format.CanCompress() && extension.ends_with(".gz")) compress = true;
        return;
    }
}

double SliceBytes(CVolume& volume) {
    int dim[4];
    volume.GetDimensions(dim);
    return static_cast<double>(dim[0]) * dim[1] * volume.GetTypeSize();
}

}  // namespace

ExportJob::ExportJob(const std::string& format, const std::string& url, const ExportOptions& options)
    : m_Options(options), m_Watch(options.watcher), m_Format(FindFormat(format)), m_bCompress(options.compress),
      m_Destination(ParseDestination(url)) {
    if ((options.sidecar && m_Format.HoldsPlanes()) ||
        ((options.sidecar || options.preview) && m_Format.IsOfModule())) {
        const char* const what = options.sidecar ? "sidecar" : "preview";
        throw Error(ErrorKind::WrongArgument, "files of format " + format + " have no " + what);
    }
    TakeExtension(m_Destination, m_Format, m_bCompress);
    m_Report.format = format;
    m_Report.destination = m_Destination.Describe();
    m_Report.policy = options.irregular;
}

ExportJob::~ExportJob() = default;

void ExportJob::SetNames(NameOfFile names, const SidecarExtras& extras) {
    m_Names = std::move(names);
    m_Extras = extras;
}

ExportReport ExportJob::Run(const SeriesChoice& choice) {
    m_bTellsOthers = true;
    return RunOn([&] { return std::make_unique<SeriesVolume>(choice); });
}

ExportReport ExportJob::Run(const Series& series) {
    return RunOn([&] { return std::make_unique<SeriesVolume>(series, m_Options.volume, m_Watch); });
}

template <class MakeSeries>
ExportReport ExportJob::RunOn(const MakeSeries& make) {
    CheckReportFile();
    try {
        const auto series = make();
        series->SetJobs(m_Options.jobs);
        if (m_Options.uptake) series->TakeUptake();
        Export(*series);
    } catch (const Error& error) {
        const ErrorKind kind = error.GetKind();
        if (kind != ErrorKind::Stopped && kind != ErrorKind::WrongArgument) ReportFailure(error.what());
        throw;
    }
    return std::move(m_Report);
}

/// Not after hours of work, and after the files of a server have been replaced.
void ExportJob::CheckReportFile() {
    if (m_Options.reportFile.empty()) return;
    ExportFiles file(Destination{}, m_Watch);
    file.SetDryRun();
    if (!file.MakeWriter()->Open(m_Options.reportFile.c_str(), "wb")) file.ThrowFailure();
}

void ExportJob::ReportFailure(const std::string& text) {
    m_Report.status = ExportReport::Status::Failed;
    m_Report.error = text;
    m_pExporter.reset();
    m_pWriter.reset();
    if (m_Files) m_Files->Discard();  // the report may need the room
    try {
        ExportFiles file(Destination{}, m_Watch);
        WriteReportFile(file);
        file.Commit();
    } catch (const Error& error) {
        m_Watch.Tell(
            {FindingKind::FileFailed, {}, {m_Options.reportFile}, {}, {}, 0, error.what()});  // beside the failure
    }
}

void ExportJob::Export(SeriesVolume& series) {
    const ExportPlan plan = MakePlan(series, m_Options.irregular, m_Format, m_Options.every);
    AddSeries(m_Report, series, plan, m_bTellsOthers);
    std::size_t slices = plan.parts.size() == 1 ? series.GetSliceCount() : 0;
    for (const ExportPart& part : plan.parts) slices = std::max(slices, part.slices.size());
    m_Format.Check(series, slices);
    series.TellWarnings();
    if (!plan.done.empty()) {
        m_Watch.Tell({FindingKind::IrregularTaken, {}, {}, {}, {}, 0, "irregular series: " + plan.done});
    }
    OpenFiles();
    ExportParts(series, plan);
    const std::vector<Finding>& read = series.GetReadFindings();
    m_Report.findings.insert(m_Report.findings.end(), read.begin(), read.end());
    Finish();
}

void ExportJob::OpenFiles() {
    if (!m_Options.dryRun) CompletePassword(m_Destination, m_Options.askPassword);
    m_Files.emplace(m_Destination, m_Watch);
    m_Files->SetMakeFolders();
    if (m_Options.dryRun) m_Files->SetDryRun();
    if (m_Options.checksums || !m_Options.reportFile.empty()) m_Files->SetChecksums();
    if (!m_Options.reportFile.empty()) m_Files->Reserve(m_Options.reportFile);
    if (m_Format.KeepsExisting() || m_Options.keepExisting) m_Files->SetKeepExisting();
}

void ExportJob::ExportParts(SeriesVolume& series, const ExportPlan& plan) {
    for (const ExportPart& part : plan.parts) ExportOne(series, part, plan.resample);
}

void ExportJob::ExportOne(SeriesVolume& series, const ExportPart& part, Resampling resample) {
    const std::size_t firstOutput = m_Files->GetOutputs().size();
    ExportedVolume volume =
        m_Format.IsOfModule() ? WriteByModule(series, part, resample) : WriteVoxels(series, part, resample);
    const std::vector<ExportOutput>& outputs = m_Files->GetOutputs();
    if (volume.filled > 0) TellFilled(volume, series.GetPaddingValue().has_value());
    TellNotApplied(series);
    if (volume.padding > 0) TellPadding(volume, static_cast<bool>(resample));
    volume.outputs.assign(outputs.begin() + static_cast<std::ptrdiff_t>(firstOutput), outputs.end());
    m_Report.volumes.push_back(std::move(volume));
}

/// Now, and in the report.
void ExportJob::Tell(Finding finding) {
    m_Watch.Tell(finding);
    m_Report.findings.push_back(std::move(finding));
}

void ExportJob::TellFilled(const ExportedVolume& volume, bool isPadding) {
    Finding finding{.kind = FindingKind::VoxelsFilled, .count = static_cast<std::size_t>(volume.filled)};
    finding.text = std::to_string(volume.filled) + " voxels without data have the stored value " +
                   ShortNumber(volume.fill) + (volume.times > 1 ? " in the first volume" : "") +
                   (isPadding ? ", Pixel Padding Value" : ", the lowest there is");
    Tell(std::move(finding));
}

/// Once, whatever the number of volumes.
void ExportJob::TellNotApplied(SeriesVolume& series) {
    if (m_bToldTable || !series.HasModalityTables()) return;
    m_bToldTable = true;
    Tell({.kind = FindingKind::NotApplied,
          .text = "its Modality LUT is not applied: the file holds values as they are stored"});
}

void ExportJob::TellPadding(const ExportedVolume& volume, bool resampled) {
    Finding finding{.kind = FindingKind::PaddingLeftOut, .count = static_cast<std::size_t>(volume.padding)};
    finding.text = std::to_string(volume.padding) +
                   (resampled ? " voxels of the file are padding, those that padding would be mixed into among them, "
                              : " voxels of padding are in the file as they are, ") +
                   "and count for no smallest or largest value";
    Tell(std::move(finding));
}

ExportedVolume ExportJob::WriteVoxels(SeriesVolume& series, const ExportPart& part, Resampling resample) {
    if (!m_pWriter) m_pWriter = m_Files->MakeWriter();
    ExportOptions options = m_Options;
    options.compress = m_bCompress;
    const std::string path =
        m_Destination.GetFolder() + "/" + (m_Names ? m_Names(part.suffix) : m_Destination.name + part.suffix);
    VoxelFile file(series, m_Format, options, m_Destination.isFtp && !m_Options.dryRun);
    ExportedVolume volume;
    try {
        volume = m_Format.HoldsPlanes() ? WriteImages(series, part, resample, path)
                                        : file.Write(part, resample, *m_pWriter, path);
    } catch (const Error& error) {
        if (!m_Files->GetFailure().empty()) ThrowUnsaved(*m_pWriter);
        if (!m_Destination.isFtp || m_Options.dryRun || m_Files->GetOutputs().empty()) throw;
        throw Error(error.GetKind(), error.what() + ("; " + EmptyRemoteFiles(*m_pWriter, *m_Files)));
    }
    if (m_Options.sidecar) {
        for (const auto& [extension, text] : file.MakeSidecars(m_Extras)) WriteText(path + extension, text);
    }
    if (m_Options.preview) WritePreview(series, part, path, file.GetPreviewPlanes());
    if (!m_Files->GetFailure().empty() || m_Watch.IsStopped()) ThrowUnsaved(*m_pWriter);
    return volume;
}

ExportedVolume ExportJob::WriteImages(SeriesVolume& series, const ExportPart& part, Resampling resample,
                                      const std::string& path) {
    DicomFiles files(series, m_Report.done.empty() ? "values and planes as they are" : m_Report.done, m_Watch);
    ExportedVolume volume = files.Write(part, resample, *m_pWriter, path, m_Options.dryRun ? "converting" : "writing");
    for (const Finding& finding : files.GetFindings()) Tell(finding);
    return volume;
}

void ExportJob::WritePreview(SeriesVolume& series, const ExportPart& part, const std::string& path,
                             PreviewPlanes* planes) {
    if (!m_Files->GetFailure().empty()) return;
    const bool isStreamed = series.IsStreamed();
    try {
        CheckPreview(series);
        std::optional<PreviewPlanes> again;
        if (!isStreamed) {
            if (!part.later.empty()) series.Load(part.slices);  // the last one is there
        } else if (planes == nullptr || !part.later.empty()) {
            series.Place(part.slices);
        }
        if (isStreamed && planes == nullptr) planes = &again.emplace(ReadForPreview(series));
        WriteText(path + ".png", MakePreview(series, planes, m_Watch));
    } catch (const Error& error) {
        if (error.GetKind() != ErrorKind::Unsupported) throw;
        Tell({.kind = FindingKind::NotApplied, .text = std::string("no preview: ") + error.what()});
    }
}

/// Where it fails, `m_Files` knows why.
void ExportJob::WriteText(const std::string& path, std::string text) {
    if (!m_Files->GetFailure().empty() || !m_pWriter->Open(path.c_str(), "wb")) return;
    m_pWriter->Write(text.data(), 1, static_cast<unsigned>(text.size()));
    m_pWriter->Close();
}

ExportedVolume ExportJob::WriteByModule(SeriesVolume& series, const ExportPart& part, Resampling resample) {
    std::optional<PlaneFeeder> feeder;
    if (!resample && PlaneFeeder::CanFeed(series, part.slices)) {
        series.Place(part.slices);
        feeder.emplace(series, m_Format, m_Watch);
        if (!feeder->Measure()) feeder.reset();
    }
    if (!feeder) {
        series.Load(part.slices);
        if (series.HasUptake() || series.RescalesDiffer()) series.BringToOneScale(true);
    }
    EvenPlanes even;
    if (resample) {
        even.PutInto(series, resample, series.GetPaddingValue(), m_Watch);
        int dim[4];
        series.GetVolume().GetDimensions(dim);
        m_Format.Check(series, static_cast<std::size_t>(*std::max_element(dim, dim + 3)));
    }
    if (!m_pExporter) {
        m_pExporter = m_Format.MakeExporter();
        m_pExporter->SetFileWriter(m_Files->MakeWriter().release());
    }
    *m_pExporter = series.GetAssembled();
    Save(series.GetVolume(), m_Destination.name + part.suffix, feeder ? &*feeder : nullptr);
    ExportedVolume volume = DescribeVolume(series, part, m_Format.IsLastFirst());
    volume.values = DescribeValues(m_Format, *m_pExporter, series, part.slices);
    volume.filled = even.CountFilled();
    volume.fill = even.GetFill();
    return volume;
}

/// The exporter's own answer is true even when it was stopped, when the disk was full, or when a file could not be closed.
void ExportJob::Save(CVolume& volume, const std::string& name, PlaneFeeder* feeder) {
    int dim[4];
    volume.GetDimensions(dim);
    bool saved;
    std::exception_ptr thrown;
    {
        TaskProgress progress(m_Watch, m_Options.dryRun ? "converting" : "writing", dim[2], SliceBytes(volume));
        if (feeder != nullptr) feeder->Begin(progress);
        m_pExporter->SetCallback(feeder != nullptr ? static_cast<CPercent*>(feeder) : &progress);
        const std::string folder = m_Destination.GetFolder();
        saved = m_Destination.isFtp ? m_pExporter->Save(folder.c_str(), name.c_str())
                                    : m_pExporter->SaveUrl(("file:" + folder + "\\" + name).c_str());
        m_pExporter->SetCallback(nullptr);
        thrown = feeder != nullptr ? feeder->GetThrown() : progress.GetThrown();
    }
    if (saved && m_Files->GetFailure().empty() && !m_Watch.IsStopped() && thrown == nullptr) {
        if (feeder == nullptr) return;
        try {
            return feeder->Finish();
        } catch (const Error&) {
            thrown = std::current_exception();
        }
    }
    ThrowUnsaved(*m_pExporter->GetFileWriter(), thrown);
}

/// Files that a server has in part cannot be taken back: they are emptied first, so that nobody takes them for whole.
void ExportJob::ThrowUnsaved(CFileWriter& writer, const std::exception_ptr& thrown) {
    const bool stopped = m_Watch.IsStopped();
    std::string failure = stopped ? "stopped" : m_Files->GetFailure();
    if (failure.empty()) failure = "cannot write " + m_Destination.Describe();
    if (m_Destination.isFtp && !m_Options.dryRun && !m_Files->GetOutputs().empty()) {
        failure += "; " + EmptyRemoteFiles(writer, *m_Files);
    }
    if (thrown != nullptr) std::rethrow_exception(thrown);
    const ErrorKind kind = m_Destination.isFtp ? ErrorKind::Refused : ErrorKind::Disk;
    throw Error(stopped ? ErrorKind::Stopped : kind, failure).InFile(m_Destination.Describe());
}

void ExportJob::Finish() {
    m_pExporter.reset();  // ends an FTP session
    m_pWriter.reset();
    m_Report.status = m_Options.dryRun ? ExportReport::Status::DryRun : ExportReport::Status::Done;
    // Before the volumes get their names: without a report that was asked for there are none.
    ExportFiles file(Destination{}, m_Watch);
    WriteReportFile(file);
    m_Files->Commit();
    file.Commit();
}

void ExportJob::WriteReportFile(ExportFiles& file) {
    if (m_Options.reportFile.empty()) return;
    std::string text = ToJson(m_Report);
    const auto writer = file.MakeWriter();
    if (!writer->Open(m_Options.reportFile.c_str(), "wb") ||
        writer->Write(text.data(), 1, static_cast<unsigned>(text.size())) != text.size() || writer->Close() != 0) {
        file.ThrowFailure();
    }
}

}  // namespace korvane
