// The files that go onto a medium, written anew where they cannot lie there as they are.
#pragma once

#include "../core/TemporaryFile.h"
#include "../core/TemporaryFolder.h"
#include "../dataset/Toolkit.h"
#include "MediaHeader.h"
#include "Medium.h"
#include "MediumProfile.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace korvane {

struct SourceFile {
    std::string path;                       ///< what is to be put onto the medium
    MediaHeader header{};                   ///< of that file
    std::unique_ptr<TemporaryFile> made{};  ///< the file, where it was written anew; to be moved before it goes
    std::string rewritten{};                ///< why
};

class SourceFiles {
public:
    /// Both must outlive the object.
    SourceFiles(const MediumOptions& options, const MediumProfile& profile);

    /// A study's Patient ID, for files of it that have none. The first one stays.
    void Learn(const std::string& study, const std::string& patientId);

    /// Where IDs are to be invented this learns from all files. `folder`: where files can be written anew.
    void Begin(const std::vector<std::string>& files, const std::string& folder);

    /// The file as it is, or written anew where it must be. On any thread. Throws `Error` of kind `Stopped`, and `Disk` where
    /// it cannot be written.
    SourceFile Take(const std::string& path);

    /// Once all that were taken are gone.
    void End();

private:
    MediaHeader ReadHeader(const std::string& path) const { return ReadMediaHeader(path, m_Rules, m_Watch); }
    bool IsAllowed(std::string_view transferSyntax) const;
    std::string WhyRewritten(const MediaHeader& header) const;
    std::string_view SyntaxToWrite(const MediaHeader& header) const;
    void Rewrite(SourceFile& file);
    std::unique_ptr<TemporaryFile> MakeFile();
    void KeepCodecOf(const std::string& transferSyntax);

    const MediumOptions& m_Options;
    const MediumProfile& m_Profile;
    MediaRules m_Rules;
    Watch m_Watch;
    std::unordered_map<std::string, std::string> m_PatientIds;  // by Study Instance UID
    std::string m_FolderOfOwn;
    std::mutex m_Mutex;  // for those below
    std::optional<TemporaryFolder> m_Folder;
    std::unordered_set<std::string> m_Kept;  // transfer syntaxes
    CodecManager m_Codecs;                   // has their codecs in use
};

}  // namespace korvane
