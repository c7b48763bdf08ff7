#include "Find.h"

#include "../core/Error.h"
#include "FoundFiles.h"
#include "SeriesFinder.h"

#include <utility>

namespace korvane {

namespace {

[[noreturn]] void AskForSeries(const Found& found, const std::string& why) {
    throw Error(ErrorKind::WrongArgument, why + "; choose with --series:").WithChoices(List(found));
}

/// A series of which a file may be missing is none to go on with.
void CheckAllRead(const FoundFiles& files) {
    if (!files.unreadable.empty()) {
        const Finding& first = files.unreadable.front();
        throw Error(ErrorKind::Disk, first.text).InFile(first.files.empty() ? "" : first.files.front());
    }
    if (files.files.empty()) {
        throw Error(ErrorKind::NotFound, files.paths.front() + ": no DICOM files").InFile(files.paths.front());
    }
}

}  // namespace

Found::Found(std::shared_ptr<const FoundFiles> files) : m_pFiles(std::move(files)) {
    for (std::size_t i = 0; i < m_pFiles->series.size(); ++i) m_Series.emplace_back(m_pFiles, i);
}

Found::Found(const Found& other) = default;
Found::Found(Found&& other) noexcept = default;
Found& Found::operator=(const Found& other) = default;
Found& Found::operator=(Found&& other) noexcept = default;
Found::~Found() = default;

const Series& Found::Only() const {
    return Choose("");
}

const Series& Found::Choose(const std::string& uidOrRow) const {
    CheckAllRead(*m_pFiles);
    if (uidOrRow.empty()) return ChooseAmong({}, "");
    const bool isRow = uidOrRow[0] == '#';
    const std::string text = isRow ? uidOrRow.substr(1) : uidOrRow;
    std::vector<const Series*> matches;
    bool byNumber = false;
    for (const Series& series : m_Series) {
        const bool row = text == std::to_string(series.GetIndex() + 1);
        const bool number = !isRow && text == std::to_string(series.GetNumber());
        if (row || number || (!isRow && text == series.GetUid())) matches.push_back(&series);
        byNumber = byNumber || number;
    }
    if (matches.empty()) AskForSeries(*this, "no series " + uidOrRow);
    if (matches.size() > 1 && byNumber) {
        AskForSeries(*this, text + " may be the row in the list (#" + text +
                                ") or the number that the scanner gave (--series-number)");
    }
    return ChooseAmong(matches, "have this UID");
}

const Series& Found::ChooseNumber(int number) const {
    CheckAllRead(*m_pFiles);
    std::vector<const Series*> matches;
    for (const Series& series : m_Series) {
        if (series.GetNumber() == number) matches.push_back(&series);
    }
    if (matches.empty()) AskForSeries(*this, "no series with number " + std::to_string(number));
    return ChooseAmong(matches, "have this number");
}

/// `matches`: those that were asked for; of none, all that have pixels.
const Series& Found::ChooseAmong(std::vector<const Series*> matches, const char* why) const {
    const bool asked = !matches.empty();
    for (const Series& series : m_Series) {
        if (!asked && series.HasPixels()) matches.push_back(&series);
    }
    if (matches.size() == 1) return *matches.front();
    if (m_Series.size() == 1) return m_Series.front();  // without pixels: who asks for a volume of it is told so
    if (matches.empty()) throw Error(ErrorKind::NotFound, "none of the series found has pixels");
    AskForSeries(*this, std::to_string(matches.size()) + " series " + (asked ? why : "found"));
}

std::size_t Found::CountFiles() const {
    return m_pFiles->files.size();
}

std::size_t Found::CountIgnored() const {
    return m_pFiles->ignored;
}

std::size_t Found::CountCopies() const {
    return m_pFiles->copies;
}

const std::vector<LeftOutFile>& Found::GetLeftOut() const {
    return m_pFiles->leftOut;
}

const std::vector<Finding>& Found::GetUnreadable() const {
    return m_pFiles->unreadable;
}

Found Find(const std::vector<std::string>& paths, const FindOptions& options) {
    if (paths.empty()) throw Error(ErrorKind::WrongArgument, "no paths to look under");
    return Found(std::make_shared<const FoundFiles>(FindSeries(paths, options.input, options.jobs, options.watcher)));
}

Series Choose(const SeriesChoice& choice) {
    const Found found = Find(choice.paths, {choice.jobs, choice.watcher, choice.input});
    return choice.number ? found.ChooseNumber(*choice.number) : found.Choose(choice.series);
}

}  // namespace korvane
