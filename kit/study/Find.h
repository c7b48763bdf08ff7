// Finds the DICOM files under paths and groups them into series.
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "../dataset/InputOptions.h"
#include "Series.h"
#include "SeriesChoice.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// A file that is in no series, and why.
struct LeftOutFile {
    std::string path;
    std::string why;
};

struct FindOptions {
    unsigned jobs = 0;  ///< threads; 0: one for each core
    Watcher* watcher = nullptr;
    InputOptions input{};
};

/// What lies under some paths. A cheap value, as its series are.
class KORVANE_KIT Found {
public:
    /// For the rooms of the Kit.
    explicit Found(std::shared_ptr<const FoundFiles> files);
    Found(const Found& other);
    Found(Found&& other) noexcept;
    Found& operator=(const Found& other);
    Found& operator=(Found&& other) noexcept;
    ~Found();

    /// By series number, UID and path; those without pixels among them.
    const std::vector<Series>& GetSeries() const { return m_Series; }

    /// The one series that has pixels. Throws `Error`: `WrongArgument` with the series as choices where there are several,
    /// `NotFound` where there is none, and what `GetUnreadable` tells where a file could not be read: a slice may be
    /// missing then.
    const Series& Only() const;
    /// The series by its UID, or by its row in the list: "#1" and up; "" for `Only`. A number alone is a row or a Series
    /// Number, where it can only mean one of them. Throws `Error` as `Only`.
    const Series& Choose(const std::string& uidOrRow) const;
    /// The series with this Series Number. Throws `Error` as `Only`.
    const Series& ChooseNumber(int number) const;

    std::size_t CountFiles() const;    ///< DICOM files in series
    std::size_t CountIgnored() const;  ///< files that are not DICOM
    std::size_t CountCopies() const;   ///< files that repeat another one's image
    const std::vector<LeftOutFile>& GetLeftOut() const;
    /// Files and folders that could not be read: kind `Unreadable`, one each.
    const std::vector<Finding>& GetUnreadable() const;

    // For the rooms of the Kit.
    const FoundFiles& GetFiles() const { return *m_pFiles; }

private:
    const Series& ChooseAmong(std::vector<const Series*> matches, const char* why) const;

    std::shared_ptr<const FoundFiles> m_pFiles;
    std::vector<Series> m_Series;
};

/// Reads the headers of all regular files under the paths: folders, searched with all below them, files, a DICOMDIR, which
/// leads to the files that it references, zip and tar archives. Pixels are not read. Files of archives are called by the
/// archive's name and their own ("study.zip: ct/1.dcm"); they lie in a temporary folder until the last copy of what is
/// returned has gone. Throws `Error`: `NotFound` when a path does not exist, `Stopped`.
///
///     const korvane::Found found = korvane::Find({"/data/study"});
///     korvane::Volume volume = korvane::Load(found.Only());
KORVANE_KIT Found Find(const std::vector<std::string>& paths, const FindOptions& options = {});

/// The series that a user chose. Throws `Error` as `Find` and `Found::Choose` do.
KORVANE_KIT Series Choose(const SeriesChoice& choice);

/// One line for each series, numbered from 1, with line ends; safe to print.
KORVANE_KIT std::string List(const Found& found);

/// One object: "schema" ("korvane.info"), "version" (1; it grows when a member changes its meaning or goes), counts, and
/// the series in the order of the list. Lengths in millimetres, positions and directions in patient axes (LPS). Findings
/// have the words of `WordOf`. Ends with a line end.
KORVANE_KIT std::string ToJson(const Found& found);

}  // namespace korvane
