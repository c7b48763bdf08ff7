// The folders of a medium on which a builder works.
#pragma once

#include "platform/FolderLock.h"
#include "platform/ReplacingFile.h"

#include <filesystem>
#include <string>
#include <vector>

namespace korvane {

/// What was made is removed again unless `Keep` is called. The root is locked meanwhile.
class MediumFolders {
public:
    enum class Medium {
        New,    ///< there is none yet; its files go into DICOM
        There,  ///< files that are added go into a folder that is made for them: DICOM1, DICOM2 ...
        Shrink  ///< none are added
    };

    MediumFolders(const std::string& root, Medium medium);
    ~MediumFolders();
    MediumFolders(const MediumFolders&) = delete;
    MediumFolders& operator=(const MediumFolders&) = delete;

    /// Throws `Error` when the root is another builder's, or has a DICOMDIR or lacks one.
    void Make();

    std::string GetDirectory() const { return m_Root + "/DICOMDIR"; }
    /// The path under which the directory is written until `Keep`.
    const std::string& GetUnfinished() const { return m_Directory.GetUnfinished(); }
    /// The name of the folder of files.
    std::string GetFileRoot() const;

    /// Gives the directory its name. Throws `Error`.
    void Keep();

private:
    void Lock();
    void MakeFileRoot();

    std::string m_Root;
    Medium m_Medium;
    std::filesystem::path m_Files;
    platform::FolderLock m_Lock;
    std::vector<std::filesystem::path> m_Made;  // folders that were not there, the innermost first
    platform::ReplacingFile m_Directory;
    bool m_bOwn = false;  // the folder of files was empty: what is in it now is of this builder
    bool m_bKept = false;
};

}  // namespace korvane
