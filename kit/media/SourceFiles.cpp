#include "SourceFiles.h"

#include "../core/Error.h"
#include "../core/SafeName.h"
#include "../dataset/DataSet.h"
#include "../dataset/DataSetFile.h"

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
    : m_Options(options), m_Profile(profile), m_Rules{.transcode = options.transcode,
                                                      .rewrite = profile.IsNamed(),
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

SourceFile SourceFiles::Take(const std::string& path, MediaHeader header) {
    if (m_bFileLeft) m_Folder->DropLastFile();
    m_bFileLeft = false;
    SourceFile file{.path = path, .header = std::move(header)};
    if (file.header.dataSet == nullptr) return file;
    file.header.why = m_Profile.FaultOf(*file.header.dataSet);
    file.rewritten = WhyRewritten(file.header);
    if (file.header.why.empty() && !file.rewritten.empty()) Rewrite(file);
    if (!file.header.why.empty()) file.header.dataSet.reset();
    return file;
}

void SourceFiles::End() {
    m_bFileLeft = false;
    m_Folder.reset();
}

std::string SourceFiles::WhyRewritten(const MediaHeader& header) const {
    std::string why;
    const auto add = [&](const std::string& reason) { why += (why.empty() ? "" : "; ") + reason; };
    if (!m_Profile.Allows(header.transferSyntax))
        add(DescribeSyntax(header.transferSyntax) + " is not of " + m_Profile.GetName() + ", decoded");
    if (m_Profile.IsNamed() && !header.isPartTen) add("it has no preamble or no meta information");
    if (m_Rules.inventPatientId && TextOf(*header.dataSet, tags::PatientID).empty()) add("it has no Patient ID");
    return why;
}

void SourceFiles::Rewrite(SourceFile& file) {
    if (!m_Folder) m_Folder.emplace(m_FolderOfOwn);
    const std::string written = m_Folder->NewFile();
    m_bFileLeft = true;
    try {
        DataSet dataSet = DataSet::Read(file.path, {.leaveLarger = kLeftInFile, .watcher = m_Options.watcher});
        if (dataSet.Text(tags::PatientID).empty()) {
            const std::string study = dataSet.Text(tags::StudyInstanceUID);
            const auto [known, isNew] = m_PatientIds.try_emplace(study, InventedId(study));
            dataSet.Set(tags::PatientID, known->second);
            file.rewritten += ", now " + known->second;
        }
        const bool isAllowed = m_Profile.Allows(file.header.transferSyntax);
        dataSet.Save(written, {.syntax = isAllowed ? "" : "explicit", .watcher = m_Options.watcher});
    } catch (const Error& error) {
        if (error.GetKind() == ErrorKind::Stopped || error.GetFile() == written) throw;
        file.header.why = error.what();
        return;
    }
    file.header = ReadMediaHeader(written, {}, m_Watch);
    file.path = written;
    file.isOwn = true;
}

}  // namespace korvane
