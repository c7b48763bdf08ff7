#include "SourceFiles.h"

#include "../core/Error.h"
#include "../core/SafeName.h"
#include "../dataset/DataSet.h"
#include "../dataset/DataSetFile.h"

#include "media/StoredSyntax.h"

#include <array>
#include <cstdio>
#include <utility>

namespace korvane {

namespace {

// The same for all files of a study, in every run.
std::string InventedId(const std::string& study) {
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llX", static_cast<unsigned long long>(HashOfText(study, 0)));
    return std::string("INVENTED-") + digits.data();
}

}  // namespace

SourceFiles::SourceFiles(const MediumOptions& options, const MediumProfile& profile)
    : m_Options(options), m_Profile(profile), m_Rules{.rewrite = profile.IsNamed() || options.transcode,
                                                      .inventPatientId = options.inventPatientId},
      m_Watch(options.watcher) {}

void SourceFiles::Learn(const std::string& study, const std::string& patientId) {
    if (!study.empty() && !patientId.empty()) m_PatientIds.try_emplace(study, patientId);
}

void SourceFiles::Begin(const std::vector<std::string>& files, const std::string& folder) {
    m_FolderOfOwn = folder;
    if (!m_Options.inventPatientId) return;
    TaskProgress progress(m_Watch, "reading headers", static_cast<std::int64_t>(files.size()));
    for (const std::string& path : files) {
        const MediaHeader header = ReadHeader(path);
        if (header.dataSet != nullptr)
            Learn(TextOf(*header.dataSet, tags::StudyInstanceUID), TextOf(*header.dataSet, tags::PatientID));
        progress.Step();
    }
}

SourceFile SourceFiles::Take(const std::string& path) {
    SourceFile file{.path = path, .header = ReadHeader(path)};
    if (file.header.dataSet == nullptr) return file;
    file.header.why = m_Profile.FaultOf(*file.header.dataSet);
    file.rewritten = WhyRewritten(file.header);
    if (file.header.why.empty() && !file.rewritten.empty()) Rewrite(file);
    if (!file.header.why.empty()) file.header.dataSet.reset();
    return file;
}

void SourceFiles::End() {
    m_Folder.reset();
}

bool SourceFiles::IsAllowed(std::string_view transferSyntax) const {
    if (m_Profile.IsNamed()) return m_Profile.Allows(transferSyntax);
    return !m_Options.transcode || transferSyntax == kExplicitLittleEndianUid ||
           transferSyntax == kImplicitLittleEndianUid;
}

std::string SourceFiles::WhyRewritten(const MediaHeader& header) const {
    std::string why;
    const auto add = [&](const std::string& reason) { why += (why.empty() ? "" : "; ") + reason; };
    if (!IsAllowed(header.transferSyntax)) {
        const std::string notOf = m_Profile.IsNamed() ? " is not of " + m_Profile.GetName() : "";
        add(DescribeSyntax(header.transferSyntax) + notOf + ", decoded");
    }
    if (m_Rules.rewrite && !header.isPartTen) add("it has no preamble or no meta information");
    if (m_Rules.inventPatientId && TextOf(*header.dataSet, tags::PatientID).empty()) add("it has no Patient ID");
    return why;
}

// "" for the file's own, which a file without meta information does not name.
std::string_view SourceFiles::SyntaxToWrite(const MediaHeader& header) const {
    const bool isAllowed = IsAllowed(header.transferSyntax);
    if (m_Profile.IsNamed()) return isAllowed ? "" : kExplicitLittleEndianUid;
    const bool stays = isAllowed && (header.isPartTen || !m_Options.transcode);
    return stays ? "" : StoredSyntax(TextOf(*header.dataSet, tags::SOPClassUID));
}

void SourceFiles::Rewrite(SourceFile& file) {
    file.made = MakeFile();
    KeepCodecOf(file.header.transferSyntax);
    const std::string& written = file.made->GetPath();
    try {
        DataSet dataSet = DataSet::Read(file.path, {.leaveLarger = kLeftInFile, .watcher = m_Options.watcher});
        if (dataSet.Text(tags::PatientID).empty()) {
            const std::string study = dataSet.Text(tags::StudyInstanceUID);
            const auto known = m_PatientIds.find(study);
            const std::string id = known != m_PatientIds.end() ? known->second : InventedId(study);
            dataSet.Set(tags::PatientID, id);
            file.rewritten += ", now " + id;
        }
        const std::string syntax(SyntaxToWrite(file.header));
        dataSet.Save(written, {.syntax = syntax, .watcher = m_Options.watcher});
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped) throw;
        if (error.GetFile() == written) throw Error(error.GetKind(), file.path + ": " + error.what()).InFile(file.path);
        file.header.why = error.what();
        return;
    }
    file.header = ReadMediaHeader(written, {}, m_Watch);
    file.path = written;
}

// The folder is there once it is needed.
std::unique_ptr<TemporaryFile> SourceFiles::MakeFile() {
    const std::lock_guard lock(m_Mutex);
    if (!m_Folder) m_Folder.emplace(m_FolderOfOwn);
    return std::make_unique<TemporaryFile>(*m_Folder);
}

// The module of a codec would be loaded anew for each file.
void SourceFiles::KeepCodecOf(const std::string& transferSyntax) {
    const std::lock_guard lock(m_Mutex);
    if (m_Kept.insert(transferSyntax).second) m_Codecs.GetCodec(transferSyntax);
}

}  // namespace korvane
