#include "Conversion.h"

#include "../core/HostError.h"
#include "../core/Paths.h"
#include "../core/Progress.h"
#include "DataSetOutput.h"

#include "host/terminal/Terminal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <vector>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr char kStream[] = "-";
constexpr char kUnfinished[] = ".part";

/// A file under a name that nothing else has, until it is whole; removed when it does not get there. A link stays one to
/// the file that it leads to. Devices and pipes have no other name: they take what comes.
class UnfinishedFile {
public:
    explicit UnfinishedFile(const std::string& name) : m_Name(name), m_Path(name) {
        std::error_code error;
        const fs::path path = PathFromText(name);
        if (fs::is_other(path, error)) return;
        if (fs::is_symlink(path, error)) {
            const fs::path file = fs::canonical(path, error);
            if (!error) m_Name = TextFromPath(file);
        }
        m_bPending = true;
        m_Path = m_Name + kUnfinished;
        for (int i = 1; fs::exists(fs::symlink_status(PathFromText(m_Path), error)); ++i) {
            m_Path = m_Name + "." + std::to_string(i) + kUnfinished;
        }
    }
    ~UnfinishedFile() {
        if (m_bPending) RemoveFile(m_Path);
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;

    const std::string& GetPath() const { return m_Path; }

    void Finish() {
        if (!m_bPending) return;
        std::error_code error;
        fs::rename(PathFromText(m_Path), PathFromText(m_Name), error);
        if (error) throw HostError("cannot create " + m_Name + ": " + SystemText(error, m_Name));
        m_bPending = false;
    }

private:
    std::string m_Name;
    std::string m_Path;
    bool m_bPending = false;
};

class StandardOutputBuffer : public Buffer {
protected:
    bool Drain(const void* bytes, std::size_t count) override {
        return std::fwrite(bytes, 1, count, stdout) == count && std::fflush(stdout) == 0;
    }
};

class StandardInputBuffer : public Buffer {
public:
    StandardInputBuffer() { platform::PrepareStandardInput(); }

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override { return std::fread(bytes, 1, capacity, stdin); }
};

bool AreSame(const fs::path& a, const fs::path& b) {
    std::error_code error;
    return fs::equivalent(a, b, error) && !error;
}

/// Whether one of the folders above `path`, or it itself, is `folder`.
bool LiesIn(const fs::path& path, const fs::path& folder) {
    std::error_code error;
    for (fs::path at = fs::absolute(path, error).lexically_normal(); !error; at = at.parent_path()) {
        if (AreSame(at, folder)) return true;
        if (at == at.parent_path()) break;
    }
    return false;
}

std::string NameOfStream(const std::string& input) {
    return input == kStream ? "standard input" : input;
}

}  // namespace

Conversion::Conversion(std::string_view syntax) : m_Syntax(syntax) {
    if (!IsNativeTransferSyntax(m_Syntax) && !CodecManager::CanEncode(m_Syntax)) {
        throw HostError("no codec module encodes " + DescribeSyntax(m_Syntax));
    }
    m_Codecs.SetStopQuestion(platform::WasInterrupted);
}

DataSetFile Conversion::Read(const std::string& input) const {
    if (input != kStream) return ReadDataSetFile(input, kParseAll);
    StandardInputBuffer buffer;
    DataSetFile file = ReadDataSet(buffer, kParseAll);
    if (std::ferror(stdin) != 0) {
        const std::string reason = SystemText(errno);
        StopIfInterrupted();
        throw HostError("cannot read standard input: " + reason);
    }
    return file;
}

bool Conversion::Transcode(DICOMDataObject& dataSet, const std::string& output) {
    if (!IsNativeTransferSyntax(m_Syntax)) return m_Codecs.Convert(&dataSet, m_Syntax) != 0;
    return (output == kStream ? m_Codecs.Decode(&dataSet) : m_Codecs.DecodeForWriting(&dataSet)) != 0;
}

/// Makes the data set what is to be written. `name`: of what it was read from.
void Conversion::Prepare(DataSetFile& file, const std::string& name, const std::string& output) {
    DICOMDataObject& dataSet = *file.dataSet;
    if (!file.complete) throw HostError(name + ": the data ends early or is damaged");
    if (IsMediaDirectory(dataSet)) throw HostError(name + ": a DICOMDIR holds offsets into itself and stays as it is");
    const bool done = Transcode(dataSet, output);
    StopIfInterrupted();
    if (!done) {
        const bool undecoded = file.encapsulated && IsEncapsulated(FindElement(dataSet, MakeTag(0x7FE0, 0x0010)));
        if (undecoded && !CodecManager::CanDecode(file.transferSyntax)) {
            throw HostError(name + ": no codec for " + DescribeSyntax(file.transferSyntax));
        }
        throw HostError(name + ": cannot " + (undecoded ? "decode " : "encode as ") +
                        DescribeSyntax(undecoded ? file.transferSyntax : m_Syntax) + ": " + m_Codecs.GetError());
    }
    if (m_Codecs.WasLossy()) {
        Warn(name + ": compressed with loss as " + DescribeSyntax(file.transferSyntax) +
             "; what was decoded is written without further loss");
    }
    dataSet.Take(0xFFFC, 0xFFFC);  // padding behind the data set
    CompleteTypes(dataSet, &PublicDictionary());
}

void Conversion::Write(DataSetFile& file, const std::string& name, const std::string& output) {
    errno = 0;
    if (output == kStream) {
        StandardOutputBuffer buffer;
        if (!WriteDataSet(buffer, *file.dataSet, m_Syntax, m_Codecs)) {
            throw HostError("cannot write to standard output: " + SystemText(errno));
        }
        return;
    }
    UnfinishedFile unfinished(output);
    FileOutputBuffer buffer;
    const bool opened = buffer.Open(unfinished.GetPath().c_str());
    const bool written = opened && WriteDataSet(buffer, *file.dataSet, m_Syntax, m_Codecs);
    if (!(opened && buffer.Close()) || !written) {
        const std::string reason = SystemText(errno);
        StopIfInterrupted();
        if (m_Codecs.GetError().empty()) throw HostError("cannot write " + output + ": " + reason);
        throw HostError(name + ": cannot decode " + DescribeSyntax(file.transferSyntax) + ": " + m_Codecs.GetError());
    }
    unfinished.Finish();
}

void Conversion::ConvertRead(DataSetFile& file, const std::string& input, const std::string& output) {
    const std::string name = NameOfStream(input);
    Prepare(file, name, output);
    Write(file, name, output);
}

void Conversion::ConvertFile(const std::string& input, const std::string& output) {
    std::string target = output;
    std::error_code error;
    if (output != kStream && fs::is_directory(PathFromText(output), error)) {
        if (input == kStream) throw UsageError(output + " is a folder; what comes from standard input has no name");
        target = TextFromPath(PathFromText(output) / PathFromText(input).filename());
    }
    if (target != kStream && input != kStream && AreSame(PathFromText(input), PathFromText(target))) {
        throw HostError(target + ": the output would overwrite the input");
    }
    DataSetFile file = Read(input);
    if (file.dataSet == nullptr) throw HostError(NameOfStream(input) + ": not a DICOM file");
    ConvertRead(file, input, target);
}

ConversionCount Conversion::ConvertFolder(const std::string& input, const std::string& output) {
    const fs::path from = PathFromText(input);
    const fs::path to = PathFromText(output);
    if (LiesIn(to, from) || LiesIn(from, to)) {
        throw HostError(output + ": the output folder must lie neither in the input folder nor around it");
    }
    std::vector<std::string> files;
    std::vector<std::string> unreadable;
    ListFolder(from, files, unreadable);
    std::sort(files.begin(), files.end());
    ConversionCount count;
    for (const std::string& line : unreadable) Warn(line);
    count.failed = unreadable.size();
    MakeDirectory(output);
    ProgressBar progress("converting", static_cast<long>(files.size()));
    for (const std::string& path : files) {
        try {
            DataSetFile file = Read(path);
            const std::string target = TextFromPath(to / PathFromText(path).lexically_relative(from));
            if (file.dataSet == nullptr) {
                ++count.notDicom;
            } else {
                MakeDirectory(TextFromPath(PathFromText(target).parent_path()));
                ConvertRead(file, path, target);
                ++count.written;
            }
        } catch (const Interrupted&) {
            throw;
        } catch (const HostError& failure) {
            Warn(failure.what());
            ++count.failed;
        }
        progress.Step();
    }
    return count;
}

}  // namespace korvane
