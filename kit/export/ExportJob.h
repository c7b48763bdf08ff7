// One run of `korvane export`.
#pragma once

#include "../core/Destination.h"
#include "../core/ExportFiles.h"
#include "../study/SeriesVolume.h"
#include "ExportFormat.h"
#include "ExportReport.h"
#include "IrregularPolicy.h"

#include <memory>
#include <optional>
#include <string>

namespace korvane {

struct ExportRequest {
    SeriesChoice choice;
    std::string format;
    std::string url;
    std::string policy = "keep";
    bool dryRun = false;
    std::string report;  ///< a file for it, written unless the run is stopped; "" for none
};

class ExportJob {
public:
    /// Throws `UsageError`, `HostError`, `Interrupted`.
    explicit ExportJob(const ExportRequest& request);
    ~ExportJob();
    ExportJob(const ExportJob&) = delete;
    ExportJob& operator=(const ExportJob&) = delete;

    /// Writes all files or none, and tells on standard output what they are. Throws `HostError`, `Interrupted`.
    void Run();

private:
    void Export();
    void ExportParts(SeriesVolume& series, const ExportPlan& plan);
    void Save(CVolume& volume, const std::string& name);
    void Finish();
    void CheckReport();
    void ReportFailure(const std::string& text);
    void Tell(CVolume& volume, const ExportPart& part, const ValueMapping& mapping, std::size_t firstOutput);
    void WriteReport(ExportFiles& file);

    const ExportRequest& m_Request;
    const ExportFormat& m_Format;
    Destination m_Destination;
    ExportReport m_Report;
    std::optional<ExportFiles> m_Files;
    std::unique_ptr<CVolumeExport> m_pExporter;  // its writer stands on the files
    std::string m_Summary;
};

}  // namespace korvane
