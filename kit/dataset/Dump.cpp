#include "Dump.h"

#include "../core/Error.h"
#include "DataSetFile.h"
#include "DumpText.h"
#include "ElementText.h"

#include <cerrno>
#include <istream>
#include <optional>
#include <vector>

namespace korvane {

namespace {

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

void Write(const DataSetFile& file, const std::string& name, std::ostream& out, const DumpOptions& options) {
    const Watch watch(options.watcher);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, name + ": not a DICOM file").InFile(name);
    for (const Finding& finding : file.findings) watch.Tell(finding);
    if (std::optional<Finding> undecoded = FindUndecodedTexts(*file.dataSet)) {
        undecoded->files = {name};
        undecoded->text = name + ": " + undecoded->text +
                          (options.json ? "; each is U+FFFD in the JSON" : "; each is shown as \\xNN");
        watch.Tell(*undecoded);
    }
    if (options.json) {
        DumpAsJson(*file.dataSet, options.meta, out, watch);
    } else {
        DumpAsText(*file.dataSet, options.whole, out, watch);
    }
    if (!file.complete) {
        throw Error(ErrorKind::Damaged, name + ": the data ends early or is damaged; the rest was not read")
            .InFile(name);
    }
}

}  // namespace

void Dump(const std::string& path, std::ostream& out, const DumpOptions& options) {
    Write(ReadDataSetFile(path, kParseAll, options.watcher, options.leniency), path, out, options);
}

void Dump(std::istream& input, std::ostream& out, const DumpOptions& options) {
    const std::string name = "standard input";
    const std::vector<unsigned char> bytes = ReadWhole(input, name, options.watcher);
    DataSetFile file = ReadDataSet(bytes, kParseAll, options.leniency);
    for (Finding& finding : file.findings) {
        finding.files = {name};
        finding.text.insert(0, name + ": ");
    }
    Write(file, name, out, options);
}

}  // namespace korvane
