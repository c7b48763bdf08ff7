#include "Dump.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "ChosenElements.h"
#include "DataSetFile.h"
#include "DumpTable.h"
#include "DumpText.h"
#include "ElementText.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <istream>
#include <optional>
#include <system_error>
#include <vector>

namespace korvane {

namespace {

// Whether anything at or behind the pixel data is asked for.
bool NeedsPixels(const DumpOptions& options) {
    return options.only.empty() || std::any_of(options.only.begin(), options.only.end(), [](const ElementPath& path) {
               return path.GetSteps().front().tag >= tags::PixelData;
           });
}

void TellOf(const DataSetFile& file, const std::string& path, const DumpOptions& options) {
    const Watch watch(options.watcher);
    for (const Finding& finding : file.findings) watch.Tell(finding);
    if (std::optional<Finding> undecoded = FindUndecodedTexts(*file.dataSet)) {
        const bool isEscaped = options.form == DumpForm::Lines;
        const char* const where = options.form == DumpForm::Json ? "; each is U+FFFD in the JSON" : "; each is U+FFFD";
        undecoded->files = {path};
        undecoded->text = path + ": " + undecoded->text + (isEscaped ? "; each is shown as \\xNN" : where);
        watch.Tell(*undecoded);
    }
}

[[noreturn]] void RefuseOther(const std::string& path) {
    throw Error(ErrorKind::NotDicom, path + ": not a DICOM file").InFile(path);
}

// Tells what is odd about a data set that was read, and takes out what was not asked for.
void Prepare(const DataSetFile& file, const std::string& path, const DumpOptions& options) {
    TellOf(file, path, options);
    if (!options.only.empty() && options.form != DumpForm::Csv) KeepChosen(*file.dataSet, options.only);
}

// Nothing when it is no DICOM file.
std::optional<DataSetFile> ReadForDump(const std::string& path, const DumpOptions& options) {
    const int option = NeedsPixels(options) ? kParseAll : kStopBeforePixelData;
    DataSetFile file = ReadDataSetFile(path, option, options.watcher, options.leniency, kLeftInFile);
    if (file.dataSet == nullptr) return std::nullopt;
    Prepare(file, path, options);
    return file;
}

void Write(const DICOMObject& dataSet, const std::string& path, std::ostream& out, const DumpOptions& options) {
    const Watch watch(options.watcher);
    switch (options.form) {
    case DumpForm::Lines: DumpAsText(dataSet, options.whole, out, watch); break;
    case DumpForm::Json: DumpAsJson(dataSet, options.meta, out, watch); break;
    case DumpForm::Xml: DumpAsXml(dataSet, options.meta, out, watch); break;
    case DumpForm::Csv: WriteTableRow(dataSet, path, options.only, out); break;
    }
}

[[noreturn]] void RefuseCut(const std::string& path) {
    throw Error(ErrorKind::Damaged, path + ": the data ends early or is damaged; the rest was not read").InFile(path);
}

// A single data set, which is a table of its own.
void WriteOnly(const DataSetFile& file, const std::string& path, std::ostream& out, const DumpOptions& options) {
    if (options.form == DumpForm::Csv) WriteTableHead(options.only, out);
    Write(*file.dataSet, path, out, options);
    if (!file.complete) RefuseCut(path);
}

std::vector<unsigned char> ReadWhole(std::istream& input, const std::string& name, const Watch& watch) {
    constexpr std::size_t kStep = std::size_t{1} << 20;
    std::vector<unsigned char> bytes;
    while (input) {
        const std::size_t before = bytes.size();
        bytes.resize(before + kStep);
        errno = 0;
        input.read(reinterpret_cast<char*>(bytes.data() + before), kStep);
        const int error = errno;
        watch.StopIfAsked();
        if (input.bad()) throw Error(ErrorKind::Disk, "cannot read " + name + ": " + SystemText(error));
        bytes.resize(before + static_cast<std::size_t>(input.gcount()));
    }
    return bytes;
}

class FolderDump {
public:
    FolderDump(std::ostream& out, const DumpOptions& options) : m_Out(out), m_Options(options) {}

    DumpReport Run(const std::vector<std::string>& paths) {
        std::vector<File> files;
        for (const std::string& path : paths) Collect(path, files);
        if (m_Options.form == DumpForm::Csv) WriteTableHead(m_Options.only, m_Out);
        TaskProgress progress(Watch(m_Options.watcher), "reading", static_cast<std::int64_t>(files.size()));
        for (const File& file : files) {
            One(file);
            progress.Step();
        }
        if (m_Options.form == DumpForm::Json) m_Out << (m_Report.written == 0 ? "[" : "") << "]\n";
        return m_Report;
    }

private:
    struct File {
        std::string path;
        bool isNamed = false;  // by the caller, not found in a folder
    };

    void Collect(const std::string& path, std::vector<File>& files) {
        std::error_code error;
        if (!std::filesystem::is_directory(PathFromText(path), error)) {
            files.push_back({path, true});
            return;
        }
        std::vector<std::string> found;
        std::vector<std::string> unreadable;
        ListFolder(PathFromText(path), found, unreadable, m_Options.watcher);
        std::sort(found.begin(), found.end());
        for (const std::string& line : unreadable) Failed(FindingKind::Unreadable, path, line);
        for (const std::string& name : found) files.push_back({name, false});
    }

    void One(const File& file) {
        try {
            const std::optional<DataSetFile> read = ReadForDump(file.path, m_Options);
            if (!read) {
                if (file.isNamed) RefuseOther(file.path);
                ++m_Report.notDicom;
                return;
            }
            if (m_Options.form == DumpForm::Lines)
                m_Out << (m_Report.written > 0 ? "\n" : "") << Visible(file.path) << '\n';
            if (m_Options.form == DumpForm::Json) m_Out << (m_Report.written > 0 ? "," : "[");
            Write(*read->dataSet, file.path, m_Out, m_Options);
            ++m_Report.written;
            if (!read->complete) RefuseCut(file.path);
        } catch (const Error& failure) {
            if (failure.GetKind() == ErrorKind::Stopped) throw;
            Failed(FindingKind::FileFailed, file.path, failure.what());
        }
    }

    void Failed(FindingKind kind, const std::string& path, const std::string& text) {
        Watch(m_Options.watcher).Tell({.kind = kind, .files = {path}, .text = text});
        ++m_Report.failed;
    }

    std::ostream& m_Out;
    const DumpOptions& m_Options;
    DumpReport m_Report;
};

}  // namespace

void Dump(const std::string& path, std::ostream& out, const DumpOptions& options) {
    const std::optional<DataSetFile> file = ReadForDump(path, options);
    if (!file) RefuseOther(path);
    WriteOnly(*file, path, out, options);
}

void Dump(std::istream& input, std::ostream& out, const DumpOptions& options) {
    const std::string name = "standard input";
    const std::vector<unsigned char> bytes = ReadWhole(input, name, options.watcher);
    DataSetFile file = ReadDataSet(bytes, kParseAll, options.leniency);
    if (file.dataSet == nullptr) RefuseOther(name);
    for (Finding& finding : file.findings) {
        finding.files = {name};
        finding.text.insert(0, name + ": ");
    }
    Prepare(file, name, options);
    WriteOnly(file, name, out, options);
}

DumpReport DumpAll(const std::vector<std::string>& paths, std::ostream& out, const DumpOptions& options) {
    std::error_code error;
    if (paths.size() == 1 && !std::filesystem::is_directory(PathFromText(paths.front()), error)) {
        Dump(paths.front(), out, options);
        return {.written = 1};
    }
    if (options.form == DumpForm::Xml) throw Error(ErrorKind::WrongArgument, "XML takes one file at a time");
    return FolderDump(out, options).Run(paths);
}

}  // namespace korvane
