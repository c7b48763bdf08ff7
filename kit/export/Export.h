// Series as files of a research format.
#pragma once

#include "../core/ExportOutput.h"
#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "../study/SeriesChoice.h"

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace korvane {

class Series;
class Volume;

/// What becomes of a series whose planes are not even or lie sideways of each other, or whose positions repeat.
enum class Irregular {
    Keep,      ///< the planes as they are, of the first of several volumes
    Reject,    ///< nothing: an `Error` of kind `Irregular`, which names the gaps and the tilt
    Resample,  ///< evenly spaced planes in their place, straight above each other
    Split,     ///< a volume for each set of repeated positions, and for each evenly spaced run of planes in it
};

/// The words "keep", "reject", "resample", "split".
KORVANE_KIT const char* WordOf(Irregular policy);
/// The policies by these words.
KORVANE_KIT const std::map<std::string, Irregular>& PolicyWords();

/// How an export is made. The defaults write all files, whole, and no report.
struct ExportOptions {
    Irregular irregular = Irregular::Keep;
    int volume = 0;       ///< of a series whose positions repeat: a number from 1; 0: as `irregular` says
    bool every = false;   ///< all volumes, as `ExportAll` does, instead of the first; not with `Split`, which does so
    bool uptake = false;  ///< standardized uptake values in place of activity, see `LoadOptions`
    bool keepExisting = false;  ///< a local file of the name is not replaced: a failure
    bool compress = false;      ///< gzip, where the format has it; also asked for by a name that ends in .gz
    /// Beside each volume file of NIfTI, NRRD or MetaImage: NAME.json in the terms of BIDS, without anything that tells a
    /// person, place, date or device; NAME.bval and NAME.bvec by FSL's convention where it is diffusion-weighted.
    bool sidecar = false;
    /// Beside each volume file of these formats: NAME.png with the middle plane of three views, of the first of several
    /// times. What has no such planes (colours, floating point) has no preview, which the watcher is told.
    bool preview = false;
    bool checksums = false;  ///< of the outputs, in the report; always made for a report file
    bool dryRun = false;  ///< everything is read and converted, nothing is written, and the report says what would be
    /// A file for the report as JSON (`ToJson`), with checksums; none when empty. It is there before the volume files get
    /// their names. A run that fails writes it too, one that is stopped does not.
    std::string reportFile{};
    /// Asked for the password where an FTP URL leaves it empty: user, host. What it throws ends the export.
    std::function<std::string(const std::string& user, const std::string& host)> askPassword{};
    unsigned jobs = 0;  ///< threads; 0 for one on each core
    Watcher* watcher = nullptr;
};

/// How the values in a file come from the stored ones.
struct ValueMapping {
    std::string formula = "stored";  ///< for people
    double scale = 1;                ///< file value = stored * scale + shift, before rounding and clamping
    double shift = 0;
    std::vector<std::string> remarks{};  ///< one line each
};

/// A volume that was written. Lengths are millimetres in patient axes (LPS: x to the left, y to the back, z to the head).
struct ExportedVolume {
    std::string what{};                 ///< "volume 2 of 10", "planes 1 to 7 of 20"; "" for all
    std::vector<std::string> inputs{};  ///< files, and frames of them
    std::array<int, 3> size{};          ///< columns, rows, slices
    std::size_t times = 1;              ///< volumes one behind the other in the file
    std::array<double, 3> spacing{};    ///< as the file has it
    bool sized = true;                  ///< else nothing says how large pixels are; the first two are a guess
    std::array<double, 6> cosines{};    ///< directions of rows and columns
    std::vector<std::array<double, 3>> positions{};  ///< first voxel of each slice, in the file's order
    std::string stored{};                            ///< such as "signed 16-bit"
    long long smallest = 0;                          ///< stored values, without padding
    long long largest = 0;
    unsigned long long padding = 0;  ///< voxels that count for neither: Pixel Padding (0028,0120)
    unsigned long long filled = 0;   ///< voxels of a straightened volume that no plane has data for
    double fill = 0;                 ///< what they have: a stored value
    ValueMapping values{};
    std::vector<ExportOutput> outputs{};
};

/// What an export did.
struct ExportReport {
    enum class Status { Failed, Done, DryRun };

    /// A file, or a frame of one, that was found and not written, and why.
    struct LeftOut {
        std::string file;
        std::string why;
    };

    Status status = Status::Failed;
    std::string error{};  ///< why it failed
    std::string format{};
    std::string destination{};  ///< without a password
    Irregular policy = Irregular::Keep;
    bool hasSeries = false;            ///< it came so far that what follows is known
    std::vector<std::string> found{};  ///< what is irregular, one line each
    std::string done{};                ///< what the policy made of it
    std::string uid{};                 ///< of the series
    std::string modality{};
    std::string description{};
    std::vector<std::string> warnings{};  ///< what is odd about the series
    /// The same, and what the files get wrong or were given: facts to branch on.
    std::vector<Finding> findings{};
    std::vector<LeftOut> leftOut{};
    std::vector<ExportedVolume> volumes{};
};

/// Writes the files of a series: all of them, whole, or none. `format`: one of `GetExportFormats`. `url`:
/// "file:path/name" or "ftp:user%password@host/path/name", without extension. Throws `Error`.
///
///     const korvane::Found found = korvane::Find({"ct"});
///     korvane::Export(found.Only(), "nifti", "file:out/head");
KORVANE_KIT ExportReport Export(const Series& series, const std::string& format, const std::string& url,
                                const ExportOptions& options = {});
/// The same of what a user chose by paths: a failure to find it is in the report file too.
KORVANE_KIT ExportReport Export(const SeriesChoice& choice, const std::string& format, const std::string& url,
                                const ExportOptions& options = {});
/// The same of a volume that is loaded; `Irregular::Split` takes its parts alone.
KORVANE_KIT ExportReport Export(const Volume& volume, const std::string& format, const std::string& url,
                                const ExportOptions& options = {});

/// One JSON object with a line end: "schema" ("korvane.export"), "version" (1; it grows when a member changes its meaning
/// or goes), "status" ("done", "dry run" or "failed", then with "error"), what was read and what was left out and why, and
/// each volume with its geometry, its values and its files. Texts that are not UTF-8 are escaped. No passwords.
KORVANE_KIT std::string ToJson(const ExportReport& report);

/// The files, sizes and remarks in lines for people, without line ends; not escaped for printing.
KORVANE_KIT std::vector<std::string> Describe(const ExportReport& report);

/// The formats there are, as `Export` takes them.
KORVANE_KIT std::vector<std::string> GetExportFormats();

}  // namespace korvane
