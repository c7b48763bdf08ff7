// The files that go onto a medium, written anew where they cannot lie there as they are.
#pragma once

#include "../core/TemporaryFolder.h"
#include "MediaHeader.h"
#include "Medium.h"
#include "MediumProfile.h"

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace korvane {

struct SourceFile {
    std::string path;         ///< what is to be copied
    MediaHeader header{};     ///< of that file
    bool isOwn = false;       ///< it was written anew, and is gone when the next one is taken
    std::string rewritten{};  ///< why
};

class SourceFiles {
public:
    /// Both must outlive the object.
    SourceFiles(const MediumOptions& options, const MediumProfile& profile);

    /// A study's Patient ID, for files of it that have none. The first one stays.
    void Learn(const std::string& study, const std::string& patientId);

    /// Where IDs are to be invented this learns from all files. `folder`: where files can be written anew.
    void Begin(const std::vector<std::string>& files, const std::string& folder);

    /// Of a file as it is. On any thread. Throws `Error` of kind `Stopped`.
    MediaHeader ReadHeader(const std::string& path) const { return ReadMediaHeader(path, m_Rules, m_Watch); }

    /// The file with that header, written anew where it must be. Throws `Error` of kind `Stopped`, and `Disk` where it cannot be.
    SourceFile Take(const std::string& path, MediaHeader header);

    /// Removes what was written anew.
    void End();

private:
    std::string WhyRewritten(const MediaHeader& header) const;
    void Rewrite(SourceFile& file);

    const MediumOptions& m_Options;
    const MediumProfile& m_Profile;
    MediaRules m_Rules;
    Watch m_Watch;
    std::unordered_map<std::string, std::string> m_PatientIds;  // by Study Instance UID
    std::string m_FolderOfOwn;
    std::optional<TemporaryFolder> m_Folder;
    bool m_bFileLeft = false;  // the last one that was written anew
};

}  // namespace korvane
