// One export, from the series to its files.
#pragma once

#include "../core/Destination.h"
#include "../core/ExportFiles.h"
#include "../core/Watch.h"
#include "../study/SeriesVolume.h"
#include "Export.h"
#include "ExportFormat.h"
#include "IrregularPolicy.h"
#include "ScanFacts.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace korvane {

class PlaneFeeder;
class PreviewPlanes;

class ExportJob {
public:
    /// Throws `Error` of kind `WrongArgument` for a format or a URL that is none.
    ExportJob(const std::string& format, const std::string& url, const ExportOptions& options);
    ~ExportJob();
    ExportJob(const ExportJob&) = delete;
    ExportJob& operator=(const ExportJob&) = delete;

    /// The name below the destination's folder of each volume file, by its ending, in place of the destination's name and
    /// the ending; and what its sidecar says besides. Of a format of the Kit.
    using NameOfFile = std::function<std::string(const std::string& ending)>;
    void SetNames(NameOfFile names, const SidecarExtras& extras);

    // Write all files or none. Throw `Error`. Once only.
    ExportReport Run(const SeriesChoice& choice);
    ExportReport Run(const Series& series);

private:
    template <class MakeSeries>
    ExportReport RunOn(const MakeSeries& make);
    void Export(SeriesVolume& series);
    void OpenFiles();
    void ExportParts(SeriesVolume& series, const ExportPlan& plan);
    void ExportOne(SeriesVolume& series, const ExportPart& part, Resampling resample);
    ExportedVolume WriteByModule(SeriesVolume& series, const ExportPart& part, Resampling resample);
    void Save(CVolume& volume, const std::string& name, PlaneFeeder* feeder);
    ExportedVolume WriteVoxels(SeriesVolume& series, const ExportPart& part, Resampling resample);
    ExportedVolume WriteImages(SeriesVolume& series, const ExportPart& part, Resampling resample,
                               const std::string& path);
    void Tell(Finding finding);
    void TellFilled(const ExportedVolume& volume, bool isPadding);
    void TellNotApplied(SeriesVolume& series);
    void TellPadding(const ExportedVolume& volume, bool resampled);
    void WritePreview(SeriesVolume& series, const ExportPart& part, const std::string& path, PreviewPlanes* planes);
    void WriteText(const std::string& path, std::string text);
    /// `thrown`: what the caller's watcher threw, if that ended the job.
    [[noreturn]] void ThrowUnsaved(CFileWriter& writer, const std::exception_ptr& thrown = nullptr);
    void Finish();
    void CheckReportFile();
    void ReportFailure(const std::string& text);
    void WriteReportFile(ExportFiles& file);

    const ExportOptions& m_Options;
    Watch m_Watch;
    const ExportFormat& m_Format;
    bool m_bCompress;
    Destination m_Destination;
    NameOfFile m_Names;
    SidecarExtras m_Extras;
    ExportReport m_Report;
    bool m_bToldTable = false;
    bool m_bTellsOthers = false;  // files of other series were looked through, and are left out
    std::optional<ExportFiles> m_Files;
    // Both stand on the files.
    std::unique_ptr<CVolumeExport> m_pExporter;  // of a format of the module; it owns its writer
    std::unique_ptr<CFileWriter> m_pWriter;      // for one of the Kit
};

}  // namespace korvane
