// DICOM media: folders with a DICOMDIR (PS3.10 8, PS3.3 F), built and checked.
#pragma once

#include "../core/KitExport.h"
#include "../core/Outcome.h"
#include "../core/Watcher.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// How a medium is built. The defaults copy bit for bit.
struct MediumOptions {
    std::vector<std::string> privateFiles{};  ///< files of any kind, to lie beside the last one that was added
    std::string fileSetId{};                  ///< name of the file-set: at most 16 of A-Z, 0-9, _ and space
    /// Decodes what is compressed, deflated or big endian, and writes it explicit VR little endian, of the RT classes implicit;
    /// what has no meta information too. Not with a profile, which says itself what is written.
    bool transcode = false;
    bool link = false;  ///< hard links instead of copies where the file system can
    /// An application profile of `GetMediumProfiles` (PS3.11): what it does not allow, and what is no whole file, is decoded and
    /// written explicit VR little endian, or left out where that cannot be; the directory has the standard's types of elements
    /// and records. "": the medium claims none, and the directory is as the module's builder makes it.
    std::string profile{};
    /// Adds to the medium that is there and keeps all of it. New files lie in a folder of their own (DICOM1 ...), records below
    /// those of their patient, study and series. A failure leaves the medium as it was.
    bool append = false;
    bool icons = false;  ///< small pictures in the records of images
    /// Gives files without a Patient ID that of their study's other files, or one made from the Study Instance UID, which is
    /// the same every time. Files are written anew for it.
    bool inventPatientId = false;
    unsigned jobs = 0;           ///< threads that read, decode and copy; 0: one for each core
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The general-purpose profiles: "STD-GEN-CD", "STD-GEN-USB-JPEG" ...
KORVANE_KIT std::vector<std::string> GetMediumProfiles();

/// Why a text is no file-set ID; empty when it is one.
KORVANE_KIT std::string FaultOfFileSetId(const std::string& id);

/// What the DICOMDIR of a medium leads to.
struct MediumContents {
    std::string root;  ///< the folder of the medium, as it was given but for slashes at its end
    std::size_t patients = 0;
    std::size_t studies = 0;
    std::size_t series = 0;
    std::size_t files = 0;              ///< records that name a file
    std::vector<std::string> problems;  ///< one line each; empty when all is well
};

/// What `BuildMedium` has built, and what it has left out.
struct MediumReport {
    struct File {
        std::string path;  ///< empty where `why` is about a folder, which it names
        std::string why;
        bool isDirectory = false;  ///< a DICOMDIR, which is never taken onto a medium
    };

    MediumContents medium;        ///< the result of `CheckMedium` at the end
    std::string profile;          ///< the one that it claims
    std::vector<File> faults;     ///< DICOM files that are missing on the medium
    std::vector<File> copies;     ///< files whose instance is there already, byte for byte the same
    std::vector<File> notMeant;   ///< files that are not DICOM, or a DICOMDIR
    std::vector<File> rewritten;  ///< files that are on the medium in another form, and why
    std::vector<File> namesakes;  ///< files whose Patient ID another Patient's Name has too: a record has one name
    std::vector<std::string> privateFiles;  ///< where they lie, relative to the root
};

/// Builds a medium in the folder `root`, which is made where it is not there, of files and of all below folders.
///
///     const auto report = korvane::BuildMedium("/mnt/stick", {"study/"});
///     for (const auto& fault : report.faults) std::cerr << fault.path << ": " << fault.why << '\n';
///
/// Sources keep their order, the files of a folder are sorted; of two files with one SOP Instance UID the first stays.
/// The directory gets its name last: a folder with a DICOMDIR is a whole medium. While one builder works in a root,
/// another one fails and touches nothing, unless the file system has no locks, as some network file systems.
///
/// Throws `Error`: `NotFound` for a source that is not there, or when nothing goes onto the medium; `Disk`, `Damaged`,
/// `WrongArgument`; `Stopped`. All that it has made is removed then.
KORVANE_KIT MediumReport BuildMedium(const std::string& root, const std::vector<std::string>& sources,
                                     const MediumOptions& options = {});

/// What `RemoveFromMedium` has done.
struct MediumRemoval {
    MediumContents medium;             ///< what is left
    std::vector<std::string> removed;  ///< files, relative to the root
    std::vector<std::string>
        faults;  ///< files that could not be removed, and why; the directory does not name them any more
};

/// Takes out of a medium the patients, studies, series and instances with these IDs (Patient ID, Study, Series or SOP Instance
/// UID): their records, then their files, then folders that are empty. What lies there without a record stays. The directory is
/// replaced by a whole one, so that whoever breaks in leaves files without records at worst, never a record without its
/// file. Throws `Error`: `NotFound` for an ID that nothing has; `Damaged`, `Disk`, `Stopped`, and nothing is changed.
KORVANE_KIT MediumRemoval RemoveFromMedium(const std::string& root, const std::vector<std::string>& ids,
                                           Watcher* watcher = nullptr);

/// How closely a medium is looked at.
enum class MediumDepth {
    Names,    ///< each named file is there
    Contents  ///< and is whole, with the UIDs that its record says
};

/// Checks the medium in `root`: every offset of its DICOMDIR must lead to a record, none may be led to twice or not at
/// all, and each named file is there (see `MediumDepth`), in a transfer syntax of the profile where one is named. Faults are
/// in the report, not thrown. Throws `Error` when the directory cannot be read (`Disk`, `NotDicom`), `WrongArgument` for a
/// profile that is none, and `Stopped`.
KORVANE_KIT MediumContents CheckMedium(const std::string& root, MediumDepth depth = MediumDepth::Contents,
                                       Watcher* watcher = nullptr, const std::string& profile = {});

/// JSON texts: one object each with "schema" ("korvane.media"), "version" (1; it grows when a member changes its
/// meaning or goes), counts of records, and what was left out.
KORVANE_KIT std::string ToJson(const MediumContents& contents);
KORVANE_KIT std::string ToJson(const MediumReport& report);
KORVANE_KIT std::string ToJson(const MediumRemoval& removal);
KORVANE_KIT Outcome OutcomeOf(const MediumContents& contents);
KORVANE_KIT Outcome OutcomeOf(const MediumReport& report);
KORVANE_KIT Outcome OutcomeOf(const MediumRemoval& removal);

}  // namespace korvane
