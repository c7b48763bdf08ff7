#include "Dump.h"

#include "../core/Error.h"
#include "DataSetFile.h"
#include "DumpText.h"
#include "ElementText.h"

#include <optional>

namespace korvane {

void Dump(const std::string& path, std::ostream& out, const DumpOptions& options) {
    const Watch watch(options.watcher);
    const DataSetFile file = ReadDataSetFile(path, kParseAll, watch, options.leniency);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, path + ": not a DICOM file").InFile(path);
    for (const Finding& finding : file.findings) watch.Tell(finding);
    if (std::optional<Finding> undecoded = FindUndecodedTexts(*file.dataSet)) {
        undecoded->files = {path};
        undecoded->text = path + ": " + undecoded->text +
                          (options.json ? "; each is U+FFFD in the JSON" : "; each is shown as \\xNN");
        watch.Tell(*undecoded);
    }
    if (options.json) {
        DumpAsJson(*file.dataSet, options.meta, out, watch);
    } else {
        DumpAsText(*file.dataSet, options.whole, out, watch);
    }
    if (!file.complete) {
        throw Error(ErrorKind::Damaged, path + ": the data ends early or is damaged; the rest was not read")
            .InFile(path);
    }
}

}  // namespace korvane
