#include "ExportJob.h"

#include "../core/HostError.h"
#include "../core/Progress.h"
#include "../core/TextEncoding.h"
#include "../study/SeriesWarnings.h"

#include "host/terminal/Terminal.h"
#include <Korvane/Korvane.h>

#include <algorithm>
#include <cstdio>
#include <map>

namespace korvane {

namespace {

const std::map<std::string, Irregular> kPolicies = {{"keep", Irregular::Keep},
                                                    {"reject", Irregular::Reject},
                                                    {"resample", Irregular::Resample},
                                                    {"split", Irregular::Split}};

/// What a file does not say about its values.
ValueMapping DescribeValues(const ExportFormat& format, const CVolumeExport& exporter, SeriesVolume& series,
                            const std::vector<SliceRef>& slices) {
    ValueMapping mapping = format.DescribeValues(exporter, series.GetVolume());
    const FramePlace& place = series.GetPlace();
    const bool differs = std::any_of(slices.begin(), slices.end(), [&](const SliceRef& slice) {
        const FramePlace& other = series.GetFound().PlaceOf(slice);
        return other.slope != place.slope || other.intercept != place.intercept;
    });
    if (differs) {
        mapping.remarks.emplace_back(
            format.IsRescaled() ? "each slice has a rescale of its own: that of the file's first was used for all"
                                : "values are as stored, and each slice has a rescale of its own");
    } else if (!format.IsRescaled() && !place.slope.empty() && !place.intercept.empty() &&
               (place.slope != "1" || place.intercept != "0")) {
        mapping.remarks.push_back("values are as stored: the real value is stored * " + place.slope + " + " +
                                  place.intercept);
    }
    if (series.GetHeader().form.photometric == "MONOCHROME1") {
        mapping.remarks.emplace_back("MONOCHROME1: low values are bright");
    }
    return mapping;
}

double SliceBytes(CVolume& volume) {
    int dim[4];
    volume.GetDimensions(dim);
    return static_cast<double>(dim[0]) * dim[1] * volume.GetTypeSize();
}

}  // namespace

ExportJob::ExportJob(const ExportRequest& request)
    : m_Request(request), m_Format(*ExportFormat::Find(request.format)), m_Destination(ParseDestination(request.url)) {
    m_Report.SetTask(request.format, m_Destination, request.policy);
}

ExportJob::~ExportJob() = default;

void ExportJob::Run() {
    CheckReport();
    try {
        Export();
    } catch (const HostError& error) {
        if (!platform::WasInterrupted()) ReportFailure(error.what());
        throw;
    }
    std::fputs(m_Summary.c_str(), stdout);
}

/// Not after hours of work, and after the files of a server have been replaced.
void ExportJob::CheckReport() {
    if (m_Request.report.empty()) return;
    ExportFiles file(Destination{});
    file.SetDryRun();
    if (!file.MakeWriter()->Open(m_Request.report.c_str(), "wb")) throw HostError(file.GetFailure());
}

void ExportJob::ReportFailure(const std::string& text) {
    m_Report.SetStatus("failed", text);
    m_pExporter.reset();
    if (m_Files) m_Files->Discard();  // the report may need the room
    try {
        ExportFiles file(Destination{});
        WriteReport(file);
        file.Commit();
    } catch (const HostError& error) {
        Warn(error.what());  // beside the failure proper
    }
}

void ExportJob::Export() {
    SeriesVolume series(m_Request.choice);
    const ExportPlan plan = MakePlan(series, kPolicies.at(m_Request.policy));
    m_Report.AddSeries(series, plan);
    std::size_t slices = plan.parts.size() == 1 ? series.GetSliceCount() : 0;
    for (const ExportPart& part : plan.parts) slices = std::max(slices, part.slices.size());
    m_Format.Check(series, slices);
    series.TellWarnings();
    if (!plan.done.empty()) Warn("warning: irregular series: " + plan.done);
    if (!m_Request.dryRun) CompletePassword(m_Destination);
    m_Files.emplace(m_Destination);
    if (m_Request.dryRun) m_Files->SetDryRun();
    if (!m_Request.report.empty()) {
        m_Files->SetChecksums();
        m_Files->Reserve(m_Request.report);
    }
    if (m_Format.KeepsExisting()) m_Files->SetKeepExisting();
    ExportParts(series, plan);
    Finish();
}

void ExportJob::ExportParts(SeriesVolume& series, const ExportPlan& plan) {
    for (const ExportPart& part : plan.parts) {
        series.Load(part.slices);
        EvenPlanes even;
        if (plan.resample) {
            even.PutInto(series.GetAssembled());
            m_Format.Check(series, static_cast<std::size_t>(series.GetVolume().GetPlaneCount()));
        }
        if (!m_pExporter) {
            m_pExporter = m_Format.MakeExporter();
            m_pExporter->SetFileWriter(m_Files->MakeWriter().release());
        }
        *m_pExporter = series.GetAssembled();
        const std::size_t firstOutput = m_Files->GetOutputs().size();
        Save(series.GetVolume(), m_Destination.name + part.suffix);
        const ValueMapping mapping = DescribeValues(m_Format, *m_pExporter, series, part.slices);
        m_Report.AddVolume(series, part, ExportGeometry(series, series.GetAssembled(), m_Format.IsLastFirst()),
                           mapping);
        Tell(series.GetVolume(), part, mapping, firstOutput);
    }
}

/// The exporter's own answer is true even when it was stopped, when the disk was full, or when a file could not be closed.
void ExportJob::Save(CVolume& volume, const std::string& name) {
    int dim[4];
    volume.GetDimensions(dim);
    bool saved;
    {
        ProgressBar progress(m_Request.dryRun ? "converting" : "writing", dim[2], SliceBytes(volume));
        m_pExporter->SetCallback(&progress);
        const std::string folder = m_Destination.GetFolder();
        saved = m_Destination.isFtp ? m_pExporter->Save(folder.c_str(), name.c_str())
                                    : m_pExporter->SaveUrl(("file:" + folder + "\\" + name).c_str());
        m_pExporter->SetCallback(nullptr);
    }
    if (saved && m_Files->GetFailure().empty() && !platform::WasInterrupted()) return;
    std::string failure = platform::WasInterrupted() ? "stopped" : m_Files->GetFailure();
    if (failure.empty()) failure = "cannot write " + m_Destination.Describe();
    if (m_Destination.isFtp && !m_Request.dryRun && !m_Files->GetOutputs().empty()) {
        failure += "; " + EmptyRemoteFiles(*m_pExporter->GetFileWriter(), *m_Files);
    }
    throw HostError(failure, platform::WasInterrupted() ? ErrorKind::Stopped : ErrorKind::Disk);
}

void ExportJob::Finish() {
    m_pExporter->SetFileWriter(nullptr);  // ends an FTP session
    m_Report.SetStatus(m_Request.dryRun ? "dry run" : "done");
    // Before the volumes get their names: without a report that was asked for there are none.
    ExportFiles file(Destination{});
    WriteReport(file);
    m_Files->Commit();
    file.Commit();
}

void ExportJob::Tell(CVolume& volume, const ExportPart& part, const ValueMapping& mapping, std::size_t firstOutput) {
    const std::vector<ExportOutput>& outputs = m_Files->GetOutputs();
    std::string names;
    for (std::size_t i = firstOutput; i < outputs.size(); ++i) {
        if (i > firstOutput) names += i + 1 < outputs.size() ? ", " : " and ";
        names += outputs[i].name;
        if (m_Request.dryRun) names += " (" + std::to_string(outputs[i].size) + " bytes)";
        m_Report.AddOutput(outputs[i]);
    }
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    m_Summary += (m_Request.dryRun ? "would write " : "wrote ") + Visible(names) + "\n";
    if (!part.what.empty()) m_Summary += part.what + "\n";
    m_Summary += std::to_string(dim[0]) + " x " + std::to_string(dim[1]) + " x " + std::to_string(dim[2]) +
                 " voxels of " + ShortNumber(static_cast<double>(space[0])) + " x " +
                 ShortNumber(static_cast<double>(space[1])) + " x " + ShortNumber(static_cast<double>(space[2])) +
                 " mm, values " + std::to_string(volume.GetMin()) + " to " + std::to_string(volume.GetMax()) + "\n";
    for (const std::string& remark : mapping.remarks) m_Summary += Visible(remark) + "\n";
}

void ExportJob::WriteReport(ExportFiles& file) {
    if (m_Request.report.empty()) return;
    std::string text = m_Report.GetText();
    const auto writer = file.MakeWriter();
    if (!writer->Open(m_Request.report.c_str(), "wb") ||
        writer->Write(text.data(), 1, static_cast<unsigned>(text.size())) != text.size() || writer->Close() != 0) {
        StopIfInterrupted();
        throw HostError(file.GetFailure());
    }
}

}  // namespace korvane
