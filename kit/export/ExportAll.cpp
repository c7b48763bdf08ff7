#include "ExportAll.h"

#include "../core/Destination.h"
#include "../core/Error.h"
#include "../core/ExportFiles.h"
#include "../core/Paths.h"
#include "../core/Threads.h"
#include "../study/SeriesVolume.h"
#include "BidsNames.h"
#include "EarlierReport.h"
#include "ExportFormat.h"
#include "ExportJob.h"
#include "IrregularPolicy.h"
#include "NamePattern.h"

#include "export/CFileWriter.h"
#include "platform/File.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <utility>

namespace korvane {

namespace {

using Status = ExportedSeries::Status;

constexpr std::size_t kAhead = 4;  // series whose findings wait for those before them

/// Findings of one series are told when it is over: those of several at work would mix.
class SeriesWatcher : public Watcher {
public:
    explicit SeriesWatcher(const Watch& watch) : m_Watch(watch) {}

    void OnFinding(const Finding& finding) override { m_Findings.push_back(finding); }
    bool IsStopped() noexcept override { return m_Watch.IsStopped(); }

    std::vector<Finding> Take() { return std::move(m_Findings); }

private:
    Watch m_Watch;
    std::vector<Finding> m_Findings;
};

constexpr std::chrono::seconds kBetweenReports{2};

class Run {
public:
    Run(const Found& found, const std::string& format, const std::string& folder, const ExportAllOptions& options)
        : m_Found(found), m_Options(options), m_Watch(options.watcher), m_Pattern(options.name),
          m_Destination(ParseDestination(folder + "/name")), m_Folder(folder) {
        // A job of a format that does not exist throws, with the formats there are.
        if (ExportFormat::Find(format) == nullptr) ExportJob(format, folder + "/name", options.each);
        m_Report.format = format;
        if (options.bids) SetBids(*options.bids);
        if (!m_Destination.isFtp) m_Folder = WithoutEndSlash(m_Folder);
        m_Destination.name.clear();
        m_Report.destination = m_Destination.isFtp ? m_Destination.Describe() : m_Destination.directory;
        for (const Finding& finding : found.GetUnreadable()) m_Report.unreadable.push_back(finding.text);
    }

    ExportAllReport Do() {
        CheckReportFile();
        if (!m_Options.each.dryRun) CompletePassword(m_Destination, m_Options.each.askPassword);
        for (const Series& series : m_Found.GetSeries()) m_Report.series.push_back(Begin(series));
        if (m_Bids) m_Places = m_Bids->FindPlaces(m_Found);
        if (!m_Options.resume.empty()) PassOverWhole(m_Report, m_Options.resume, m_Watch);
        for (ExportedSeries& entry : m_Report.series) Plan(entry);
        try {
            if (m_Bids) DescribeDataset();
            Work();
        } catch (const Error& error) {
            if (error.GetKind() != ErrorKind::Stopped) throw;
            m_Report.stopped = true;
            WriteReport({});
            throw;
        }
        WriteReport(m_Watch);
        return std::move(m_Report);
    }

private:
    const Series& SeriesOf(const ExportedSeries& entry) const { return m_Found.GetSeries()[entry.row - 1]; }

    static ExportedSeries Begin(const Series& series) {
        ExportedSeries entry;
        entry.row = series.GetIndex() + 1;
        entry.number = series.GetNumber();
        entry.uid = series.GetUid();
        entry.description = series.GetDescription();
        entry.firstFile = series.GetFiles().NameOf(series.GetFound().slices.front());
        entry.images = series.CountImages();
        if (!series.HasPixels()) entry.status = Status::NoImage;
        return entry;
    }

    void SetBids(const BidsTree& tree) {
        if (m_Report.format != "nifti" || m_Destination.isFtp) {
            throw Error(ErrorKind::WrongArgument, "a BIDS tree has NIfTI files, in a folder of this machine");
        }
        m_Bids.emplace(tree.subject, tree.session);
    }

    /// Somebody's own description stays.
    void DescribeDataset() {
        const std::string path = m_Folder + "/dataset_description.json";
        if (m_Options.each.dryRun || platform::FileExists(path.c_str())) return;
        MakeDirectory(m_Folder);
        WriteText(path, BidsNames::DescribeDataset(), m_Watch);
    }

    /// Names are given before the work begins, in the order of the list. Series that are whole keep theirs.
    void Plan(ExportedSeries& entry) {
        if (entry.status == Status::NoImage) return;
        std::vector<std::string> suffixes;
        try {
            const SeriesVolume series(SeriesOf(entry), 0, m_Watch);
            const ExportPlan plan =
                MakePlan(series, m_Options.each.irregular, *ExportFormat::Find(m_Report.format), true);
            for (const ExportPart& part : plan.parts) suffixes.push_back(part.suffix);
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) throw;
            Refuse(entry, error.what());
        }
        entry.name = m_Names.Take(m_Pattern.MakeName(SeriesOf(entry)), suffixes);
        if (m_Bids && entry.why.empty()) entry.why = PlaceOf(entry).why;
    }

    static void Refuse(ExportedSeries& entry, const std::string& why) {
        entry.status = Status::Refused;
        entry.why = why;
    }

    void Work() {
        std::vector<std::size_t> open;
        for (std::size_t i = 0; i < m_Report.series.size(); ++i) {
            if (m_Report.series[i].status == Status::Open) open.push_back(i);
        }
        const unsigned jobs = CountJobs(m_Options.jobs);
        m_nJobsOfEach = std::max<unsigned>(1, jobs / static_cast<unsigned>(std::max<std::size_t>(open.size(), 1)));
        TaskProgress progress(m_Watch, "exporting series", static_cast<std::int64_t>(open.size()));
        std::vector<std::vector<Finding>> findings(open.size());
        ExportAllReport soFar = m_Report;  // threads write the other
        soFar.stopped = true;
        auto nextReport = std::chrono::steady_clock::now();
        ForEachInOrder(
            jobs, open.size(), kAhead, m_Watch,
            [&](std::size_t i) { findings[i] = ExportOne(m_Report.series[open[i]]); },
            [&](std::size_t i) {
                for (Finding& finding : std::exchange(findings[i], {})) {
                    finding.text = m_Report.series[open[i]].name + ": " + finding.text;
                    m_Watch.Tell(finding);
                }
                progress.Step();
                soFar.series[open[i]] = m_Report.series[open[i]];
                if (std::chrono::steady_clock::now() < nextReport) return;
                WriteSoFar(soFar);
                nextReport = std::chrono::steady_clock::now() + kBetweenReports;
            });
    }

    std::vector<Finding> ExportOne(ExportedSeries& entry) const {
        SeriesWatcher watcher(m_Watch);
        ExportOptions options = m_Options.each;
        options.volume = 0;
        options.every = true;
        if (m_Bids) options.sidecar = options.compress = true;
        options.keepExisting = !m_Options.overwrite;
        options.reportFile.clear();
        options.checksums = !m_Options.reportFile.empty();
        options.jobs = m_nJobsOfEach;
        options.watcher = &watcher;
        if (m_Destination.isFtp) {
            options.askPassword = [this](const std::string&, const std::string&) { return m_Destination.password; };
        }
        try {
            ExportJob job(m_Report.format, m_Folder + "/" + (m_Bids ? "bids" : entry.name) + ExtensionOf(options),
                          options);
            if (m_Bids) {
                job.SetNames(
                    [&](const std::string& ending) { return m_Bids->NameOf(PlaceOf(entry), ending, entry.name); },
                    PlaceOf(entry).extras);
            }
            entry.report = job.Run(SeriesOf(entry));
            for (const ExportedVolume& volume : entry.report.volumes) {
                entry.outputs.insert(entry.outputs.end(), volume.outputs.begin(), volume.outputs.end());
            }
            entry.status = Status::Written;
        } catch (const Error& error) {
            if (error.GetKind() == ErrorKind::Stopped) throw;
            Refuse(entry, error.what());
        } catch (const std::bad_alloc&) {
            Refuse(entry, "out of memory");
        }
        return watcher.Take();
    }

    const BidsPlace& PlaceOf(const ExportedSeries& entry) const { return m_Places[entry.row - 1]; }

    /// With it a name that ends like an extension stays as it is.
    std::string ExtensionOf(const ExportOptions& options) const {
        return ExportFormat::Find(m_Report.format)->GetExtension(options.compress);
    }

    /// Not after hours of work.
    void CheckReportFile() {
        if (m_Options.reportFile.empty()) return;
        ExportFiles file(Destination{}, m_Watch);
        file.SetDryRun();
        if (!file.MakeWriter()->Open(m_Options.reportFile.c_str(), "wb")) file.ThrowFailure();
    }

    void WriteReport(const Watch& watch) {
        if (m_Options.reportFile.empty()) return;
        WriteText(m_Options.reportFile, ToJson(m_Report), watch);
    }

    /// For who resumes a run that was killed. What fails here is told with the last report.
    void WriteSoFar(const ExportAllReport& report) const {
        if (m_Options.reportFile.empty()) return;
        try {
            WriteText(m_Options.reportFile, ToJson(report), {});
        } catch (const Error&) {  // NOLINT(bugprone-empty-catch): see above
        }
    }

    static void WriteText(const std::string& path, std::string text, const Watch& watch) {
        ExportFiles file(Destination{}, watch);
        const auto writer = file.MakeWriter();
        if (!writer->Open(path.c_str(), "wb") ||
            writer->Write(text.data(), 1, static_cast<unsigned>(text.size())) != text.size() || writer->Close() != 0) {
            file.ThrowFailure();
        }
        file.Commit();
    }

    const Found& m_Found;
    const ExportAllOptions& m_Options;
    Watch m_Watch;
    NamePattern m_Pattern;
    Destination m_Destination;
    std::string m_Folder;
    NamesTaken m_Names;
    std::optional<BidsNames> m_Bids;
    std::vector<BidsPlace> m_Places;  // of each series, with `m_Bids`
    unsigned m_nJobsOfEach = 1;
    ExportAllReport m_Report;
};

}  // namespace

ExportAllReport ExportAll(const Found& found, const std::string& format, const std::string& folder,
                          const ExportAllOptions& options) {
    if (found.GetSeries().empty()) {
        const std::string& first = found.GetFiles().paths.front();
        throw Error(ErrorKind::NotFound, first + ": no DICOM files").InFile(first);
    }
    return Run(found, format, folder, options).Do();
}

}  // namespace korvane
