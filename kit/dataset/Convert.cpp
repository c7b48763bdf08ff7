#include "Convert.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Threads.h"
#include "../core/WorkGroups.h"
#include "DataSet.h"
#include "DataSetFile.h"
#include "DataSetOutput.h"
#include "LeftValues.h"
#include "StreamBuffers.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <span>
#include <system_error>
#include <utility>

namespace korvane {

namespace fs = std::filesystem;

namespace {

bool AreSame(const fs::path& a, const fs::path& b) {
    std::error_code error;
    return fs::equivalent(a, b, error) && !error;
}

// Whether one of the folders above `path`, or it itself, is `folder`.
bool LiesIn(const fs::path& path, const fs::path& folder) {
    std::error_code error;
    for (fs::path at = fs::absolute(path, error).lexically_normal(); !error; at = at.parent_path()) {
        if (AreSame(at, folder)) return true;
        if (at == at.parent_path()) break;
    }
    return false;
}

// Where a data set comes from or goes to: a file or a stream.
struct Source {
    std::istream* stream = nullptr;
    std::string name;  ///< path, or what messages call the stream
};
struct Sink {
    std::ostream* stream = nullptr;
    std::string name;
};

// For one thread at a time: its codecs, which are loaded once for all files that it converts, and the report of what it
// has converted, which whoever takes it tells.
class Conversion {
public:
    explicit Conversion(const ConvertOptions& options);

    void ConvertOne(const Source& from, const Sink& to);
    // A file below `from` to its place below `to`. What fails, but for a stop, is told in the report.
    void ConvertListed(const std::string& path, const fs::path& from, const fs::path& to);

    /// Since the last one was taken.
    ConvertReport TakeReport() { return std::exchange(m_Report, {}); }

private:
    DataSetFile Read(const Source& from) const;
    void Edit(DataSetFile& file, const std::string& name) const;
    bool Transcode(DICOMDataObject& dataSet, const Sink& to);
    void Prepare(DataSetFile& file, const std::string& name, const Sink& to);
    void Write(DataSetFile& file, const std::string& name, const Sink& to);
    void ConvertRead(DataSetFile& file, const Source& from, const Sink& to);
    void Tell(FindingKind kind, const std::string& path, const std::string& text);

    const ConvertOptions& m_Options;
    std::string m_Syntax;
    Watch m_Watch;
    CodecManager m_Codecs;
    ConvertReport m_Report;
};

Conversion::Conversion(const ConvertOptions& options)
    : m_Options(options), m_Syntax(SyntaxUid(options.syntax)), m_Watch(options.watcher) {
    m_Report.syntax = DescribeSyntax(m_Syntax);
    if (!IsNativeTransferSyntax(m_Syntax) && !CodecManager::CanEncode(m_Syntax)) {
        throw Error(ErrorKind::Unsupported, "no codec module encodes " + DescribeSyntax(m_Syntax));
    }
    m_Codecs.SetStopQuestion(m_Watch.GetStopQuestion());
}

void Conversion::Tell(FindingKind kind, const std::string& path, const std::string& text) {
    m_Report.findings.push_back({.kind = kind, .files = {path}, .text = text});
}

DataSetFile Conversion::Read(const Source& from) const {
    if (from.stream == nullptr) return ReadDataSetFile(from.name, kParseAll, m_Watch, {}, kLeftInFile);
    errno = 0;
    StreamInputBuffer buffer(*from.stream);
    DataSetFile file = ReadDataSet(buffer, kParseAll);
    const int error = errno;
    m_Watch.StopIfAsked();
    if (from.stream->bad()) throw Error(ErrorKind::Disk, "cannot read " + from.name + ": " + SystemText(error));
    return file;
}

bool Conversion::Transcode(DICOMDataObject& dataSet, const Sink& to) {
    if (!IsNativeTransferSyntax(m_Syntax)) return m_Codecs.Convert(&dataSet, m_Syntax) != 0;
    return (to.stream != nullptr ? m_Codecs.Decode(&dataSet) : m_Codecs.DecodeForWriting(&dataSet)) != 0;
}

void Conversion::Edit(DataSetFile& file, const std::string& name) const {
    if (m_Options.set.empty() && m_Options.remove.empty()) return;
    DataSet edited = DataSetParts::Join(file);
    try {
        for (const auto& [path, text] : m_Options.set) edited.Set(path, text);
    } catch (Error& failure) {
        throw Error(failure.GetKind(), name + ": " + failure.what()).InFile(name);
    }
    for (const ElementPath& path : m_Options.remove) edited.Delete(path);
    file.dataSet = DataSetParts::Take(edited);
}

// Makes the data set what is to be written. `name`: of what it was read from.
void Conversion::Prepare(DataSetFile& file, const std::string& name, const Sink& to) {
    if (!file.complete) throw Error(ErrorKind::Damaged, name + ": the data ends early or is damaged").InFile(name);
    if (IsMediaDirectory(*file.dataSet)) {
        throw Error(ErrorKind::Unsupported, name + ": a DICOMDIR holds offsets into itself and stays as it is")
            .InFile(name);
    }
    Edit(file, name);
    const bool mustSeePixels = !IsNativeTransferSyntax(m_Syntax) || HasEncapsulatedPixels(*file.dataSet);
    if (mustSeePixels) LeftValueReader(m_Watch).LoadAll(*file.dataSet);
    const bool done = Transcode(*file.dataSet, to);
    m_Watch.StopIfAsked();
    DICOMDataObject& dataSet = *file.dataSet;
    if (!done) {
        const bool undecoded = file.encapsulated && IsEncapsulated(FindElement(dataSet, tags::PixelData));
        if (undecoded && !CodecManager::CanDecode(file.transferSyntax)) {
            throw Error(ErrorKind::Unsupported, name + ": no codec for " + DescribeSyntax(file.transferSyntax))
                .InFile(name);
        }
        throw Error(undecoded ? ErrorKind::Damaged : ErrorKind::Unsupported,
                    name + ": cannot " + (undecoded ? "decode " : "encode as ") +
                        DescribeSyntax(undecoded ? file.transferSyntax : m_Syntax) + ": " + m_Codecs.GetError())
            .InFile(name);
    }
    if (m_Codecs.WasLossy()) {
        Tell(FindingKind::Lossy, name,
             name + ": compressed with loss as " + DescribeSyntax(file.transferSyntax) +
                 "; what was decoded is written without further loss");
    }
    dataSet.Take(tags::DataSetTrailingPadding);  // padding behind the data set
    CompleteTypes(dataSet, &PublicDictionary());
}

void Conversion::Write(DataSetFile& file, const std::string& name, const Sink& to) {
    if (to.stream == nullptr) {
        if (SaveDataSet(to.name, *file.dataSet, m_Syntax, m_Codecs, m_Watch)) return;
        throw Error(ErrorKind::Damaged,
                    name + ": cannot decode " + DescribeSyntax(file.transferSyntax) + ": " + m_Codecs.GetError())
            .InFile(name);
    }
    errno = 0;
    StreamOutputBuffer buffer(*to.stream);
    if (!WriteDataSet(buffer, *file.dataSet, m_Syntax, m_Codecs, m_Watch)) {
        const int error = errno;
        m_Watch.StopIfAsked();
        throw Error(ErrorKind::Disk, "cannot write to " + to.name + ": " + SystemText(error));
    }
}

void Conversion::ConvertRead(DataSetFile& file, const Source& from, const Sink& to) {
    // What the reader forgave is told with the file.
    m_Report.findings.insert(m_Report.findings.end(), file.findings.begin(), file.findings.end());
    Prepare(file, from.name, to);
    Write(file, from.name, to);
    ++m_Report.written;
}

void Conversion::ConvertOne(const Source& from, const Sink& to) {
    Sink target = to;
    std::error_code error;
    if (to.stream == nullptr && fs::is_directory(PathFromText(to.name), error)) {
        if (from.stream != nullptr) {
            throw Error(ErrorKind::WrongArgument,
                        to.name + " is a folder; what comes from " + from.name + " has no name");
        }
        target.name = TextFromPath(PathFromText(to.name) / PathFromText(from.name).filename());
    }
    if (target.stream == nullptr && from.stream == nullptr &&
        AreSame(PathFromText(from.name), PathFromText(target.name))) {
        throw Error(ErrorKind::Disk, target.name + ": the output would overwrite the input").InFile(target.name);
    }
    DataSetFile file = Read(from);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, from.name + ": not a DICOM file").InFile(from.name);
    ConvertRead(file, from, target);
}

void Conversion::ConvertListed(const std::string& path, const fs::path& from, const fs::path& to) {
    const Source source{nullptr, path};
    try {
        DataSetFile file = Read(source);
        if (file.dataSet == nullptr) {
            ++m_Report.notDicom;
            return;
        }
        const std::string target = TextFromPath(to / PathFromText(path).lexically_relative(from));
        MakeDirectory(TextFromPath(PathFromText(target).parent_path()));
        ConvertRead(file, source, {nullptr, target});
    } catch (const Error& failure) {
        if (failure.GetKind() == ErrorKind::Stopped) throw;
        Tell(FindingKind::FileFailed, path, failure.what());
        ++m_Report.failed;
    }
}

// All files below a folder.
class FolderConversion {
public:
    FolderConversion(const std::string& input, const std::string& output, const ConvertOptions& options)
        : m_Options(options), m_Watch(options.watcher), m_From(PathFromText(input)), m_To(PathFromText(output)) {
        m_Report = Conversion(options).TakeReport();  // no file is touched where the options are wrong
        m_Report.isFolder = true;
        m_Report.input = input;
        m_Report.output = output;
        if (LiesIn(m_To, m_From) || LiesIn(m_From, m_To)) {
            throw Error(ErrorKind::Disk,
                        output + ": the output folder must lie neither in the input folder nor around it");
        }
        std::vector<std::string> unreadable;
        ListFolder(m_From, m_Files, unreadable, m_Watch);
        std::sort(m_Files.begin(), m_Files.end());
        for (const std::string& line : unreadable) {
            m_Report.findings.push_back({.kind = FindingKind::Unreadable, .files = {input}, .text = line});
            m_Watch.Tell(m_Report.findings.back());
        }
        m_Report.failed = unreadable.size();
        MakeDirectory(output);
    }

    ConvertReport Run() {
        TaskProgress progress(m_Watch, "converting", static_cast<std::int64_t>(m_Files.size()));
        constexpr std::size_t kMostTogether = 8;   // files
        constexpr std::size_t kAheadOfThread = 4;  // groups of them
        const std::size_t ahead = kAheadOfThread * CountJobs(m_Options.jobs);
        const WorkGroups groups(m_Files.size(), m_Options.jobs, kMostTogether);
        std::deque<Conversion> ring;  // as many as are under way
        while (ring.size() < std::min(ahead, groups.GetCount())) ring.emplace_back(m_Options);
        const auto files = [&](std::size_t i) {
            return std::span(m_Files).subspan(groups.BeginOf(i), groups.EndOf(i) - groups.BeginOf(i));
        };
        ForEachInOrder(
            m_Options.jobs, groups.GetCount(), ahead, m_Watch,
            [&](std::size_t i) {
                for (const std::string& file : files(i)) ring[i % ahead].ConvertListed(file, m_From, m_To);
            },
            [&](std::size_t i) {
                Take(ring[i % ahead].TakeReport());
                for (std::size_t k = files(i).size(); k > 0; --k) progress.Step();
            });
        return std::move(m_Report);
    }

private:
    void Take(ConvertReport of) {
        m_Report.written += of.written;
        m_Report.notDicom += of.notDicom;
        m_Report.failed += of.failed;
        for (Finding& finding : of.findings) {
            m_Watch.Tell(finding);
            m_Report.findings.push_back(std::move(finding));
        }
    }

    const ConvertOptions& m_Options;
    Watch m_Watch;
    fs::path m_From;
    fs::path m_To;
    std::vector<std::string> m_Files;
    ConvertReport m_Report;
};

ConvertReport ConvertOne(const Source& from, const Sink& to, const ConvertOptions& options) {
    Conversion conversion(options);
    const Watch watch(options.watcher);
    ConvertReport report;
    const auto tell = [&] {
        report = conversion.TakeReport();
        for (const Finding& finding : report.findings) watch.Tell(finding);
    };
    try {
        conversion.ConvertOne(from, to);
    } catch (const Error&) {
        tell();
        throw;
    }
    tell();
    return report;
}

}  // namespace

ConvertReport Convert(const std::string& input, const std::string& output, const ConvertOptions& options) {
    std::error_code error;
    if (!fs::is_directory(PathFromText(input), error)) return ConvertOne({nullptr, input}, {nullptr, output}, options);
    return FolderConversion(input, output, options).Run();
}

Outcome OutcomeOf(const ConvertReport& report) {
    Outcome outcome;
    if (!report.isFolder) return outcome;
    outcome.lines.push_back(std::to_string(report.written) + " files written to " + report.output + " as " +
                            report.syntax);
    if (report.notDicom > 0)
        outcome.lines.push_back(std::to_string(report.notDicom) + " files are not DICOM and were left out");
    if (report.failed > 0) {
        outcome.failure.emplace(ErrorKind::Disk, std::to_string(report.failed) + " files could not be converted");
    } else if (report.written == 0) {
        outcome.failure.emplace(ErrorKind::NotDicom, report.input + ": no DICOM files");
    }
    return outcome;
}

ConvertReport Convert(std::istream& input, const std::string& output, const ConvertOptions& options) {
    return ConvertOne({&input, options.inputName}, {nullptr, output}, options);
}

ConvertReport Convert(const std::string& input, std::ostream& output, const ConvertOptions& options) {
    std::error_code error;
    if (fs::is_directory(PathFromText(input), error)) {
        throw Error(ErrorKind::WrongArgument, "a folder does not go to " + options.outputName);
    }
    return ConvertOne({nullptr, input}, {&output, options.outputName}, options);
}

ConvertReport Convert(std::istream& input, std::ostream& output, const ConvertOptions& options) {
    return ConvertOne({&input, options.inputName}, {&output, options.outputName}, options);
}

}  // namespace korvane
