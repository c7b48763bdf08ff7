// Network jobs in words: their options, and what became of them.
#include "../core/Visible.h"
#include "Commit.h"
#include "Echo.h"
#include "Query.h"
#include "Receive.h"
#include "Retrieve.h"
#include "Send.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace korvane {

namespace {

constexpr std::size_t kWidest = 40;  // characters of a column

std::string Decimal(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

void AddFiles(const std::string& what, const std::vector<SendReport::File>& files, std::vector<std::string>& lines) {
    for (const auto& file : files) lines.push_back(what + file.path + ": " + file.why);
}

/// About how many columns of a terminal a UTF-8 text takes.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::vector<std::vector<std::string>> RowsOf(const QueryReport& report) {
    std::vector<std::vector<std::string>> rows(1);
    for (const std::string& column : report.columns) rows[0].push_back(column.substr(column.rfind('.') + 1));
    for (const DataSet& match : report.matches) {
        std::vector<std::string>& row = rows.emplace_back();
        for (const std::string& column : report.columns) row.push_back(Visible(match.Text(column)));
    }
    return rows;
}

/// What there is to say of a file: why it was not stored, else what is odd about it.
const std::string& RemarkOn(const ReceivedFile& file) {
    return file.why.empty() ? file.remark : file.why;
}

}  // namespace

const std::map<std::string, FileLayout>& LayoutWords() {
    static const std::map<std::string, FileLayout> kWords = {{"flat", FileLayout::Flat},
                                                             {"patient", FileLayout::Patient},
                                                             {"study", FileLayout::Study},
                                                             {"series", FileLayout::Series}};
    return kWords;
}

const std::map<std::string, TlsProfile>& TlsProfileWords() {
    static const std::map<std::string, TlsProfile> kWords = {{"bcp195", TlsProfile::Bcp195},
                                                             {"bcp195-extended", TlsProfile::ExtendedBcp195}};
    return kWords;
}

Outcome OutcomeOf(const EchoReport& report) {
    return {.lines = {report.peer.Name() + " answers as " + report.peer.peerTitle + " (" +
                      (report.implementation.empty() ? "unnamed" : report.implementation) + "), " +
                      Decimal(report.milliseconds) + " ms"}};
}

Outcome OutcomeOf(const CommitReport& report) {
    Outcome outcome{.lines = {std::to_string(report.committed) + " of " + std::to_string(report.instances.size()) +
                              " instances are committed by " + report.peer}};
    for (const auto& file : report.leftOut) outcome.lines.push_back("left out: " + file.path + ": " + file.why);
    for (const auto& file : report.failed) outcome.faults.push_back(file.path + ": " + file.why);
    for (const CommitReport::Instance& instance : report.instances) {
        if (instance.outcome == CommitReport::Outcome::Committed) continue;
        outcome.faults.push_back(instance.path + ": " + WordOf(instance.outcome) + ": " + instance.why);
    }
    if (!outcome.faults.empty()) {
        outcome.failure.emplace(ErrorKind::Refused,
                                std::to_string(outcome.faults.size()) + " are not committed: keep your own");
    } else if (report.instances.empty()) {
        outcome.failure.emplace(ErrorKind::NotFound, "no DICOM files");
    }
    return outcome;
}

Outcome OutcomeOf(const SendReport& report) {
    Outcome outcome;
    std::vector<std::string>& lines = outcome.lines;
    lines.push_back(std::to_string(report.stored) + " files stored at " + report.peer + ": " +
                    Decimal(static_cast<double>(report.bytes) / 1e6) + " MB in " + Decimal(report.seconds) + " s");
    if (report.earlier > 0) lines.push_back(std::to_string(report.earlier) + " files were stored by an earlier run");
    std::map<std::string, std::size_t> reasons;
    for (const auto& file : report.decoded) ++reasons[file.why];
    for (const auto& [why, count] : reasons) lines.push_back(std::to_string(count) + " files sent decoded: " + why);
    AddFiles("sent once more: ", report.again, lines);
    AddFiles("stored with a warning: ", report.warned, lines);
    AddFiles("left out: ", report.leftOut, lines);
    AddFiles("", report.failed, outcome.faults);
    const std::size_t failed = report.failed.size();
    if (failed > 0) {
        outcome.failure.emplace(ErrorKind::Refused,
                                std::to_string(failed) + (failed == 1 ? " file was" : " files were") + " not stored");
    } else if (report.stored + report.earlier == 0 && !report.sources.empty()) {
        outcome.failure.emplace(ErrorKind::NotFound, report.sources.front() + ": no DICOM files");
    }
    if (!report.commitment) return outcome;
    const Outcome commitment = OutcomeOf(*report.commitment);
    lines.insert(lines.end(), commitment.lines.begin(), commitment.lines.end());
    outcome.faults.insert(outcome.faults.end(), commitment.faults.begin(), commitment.faults.end());
    if (!outcome.failure) outcome.failure = commitment.failure;
    return outcome;
}

Outcome OutcomeOf(const QueryReport& report) {
    const std::vector<std::vector<std::string>> rows = RowsOf(report);
    std::vector<std::size_t> widths(report.columns.size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::min(std::max(widths[i], WidthOf(row[i])), kWidest);
    }
    Outcome outcome;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t width = WidthOf(row[i]);
            line += row[i] + std::string(widths[i] > width ? widths[i] - width : 0, ' ') + "  ";
        }
        outcome.lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    return outcome;
}

Outcome OutcomeOf(const RetrieveReport& report) {
    Outcome outcome;
    outcome.lines.push_back(report.destination.empty()
                                ? std::to_string(report.stored) + " files from " + report.peer + " in " + report.folder
                                : std::to_string(report.completed) + " instances sent by " + report.peer + " to " +
                                      report.destination);
    std::size_t notStored = 0;
    for (const ReceivedFile& file : report.files) {
        if (!RemarkOn(file).empty()) outcome.faults.push_back(file.sopInstance + ": " + RemarkOn(file));
        notStored += file.why.empty() ? 0 : 1;
    }
    for (const auto& failure : report.failures) outcome.faults.push_back(failure.what + ": " + failure.why);
    const std::size_t failed = std::max(report.failed, notStored);
    if (failed > 0) {
        outcome.failure.emplace(ErrorKind::Refused, std::to_string(failed) + " instances did not come");
    } else if (!report.failures.empty()) {
        outcome.failure.emplace(ErrorKind::Refused, "not all that was asked for came");
    }
    return outcome;
}

Outcome OutcomeOf(const ReceivedFile& file) {
    Outcome outcome;
    if (!RemarkOn(file).empty())
        outcome.faults.push_back(file.time + ' ' + file.sopInstance + " from " + file.caller + ": " + RemarkOn(file));
    return outcome;
}

Outcome OutcomeOf(const ReceivedAssociation& association) {
    const std::string who = association.end + ' ' + (association.caller.empty() ? "unnamed" : association.caller) +
                            " (" + association.address + "): ";
    Outcome outcome{
        .lines = {who + std::to_string(association.stored) + " files stored" +
                  (association.refused > 0 ? ", " + std::to_string(association.refused) + " refused" : "")}};
    if (!association.error.empty()) outcome.faults.push_back(who + association.error);
    return outcome;
}

Outcome OutcomeOf(const ReceivedCommitment& commitment) {
    const std::string who = commitment.time + ' ' + commitment.caller + ": ";
    Outcome outcome;
    if (commitment.reported) {
        outcome.lines.push_back(who + std::to_string(commitment.instances - commitment.failed) + " of " +
                                std::to_string(commitment.instances) + " instances committed");
    }
    if (!commitment.why.empty()) {
        outcome.faults.push_back(who + "commitment " + commitment.transaction + ": " + commitment.why);
    }
    return outcome;
}

Outcome OutcomeOf(const ReceiveReport& report) {
    Outcome outcome;
    if (report.refused > 0) {
        outcome.failure.emplace(ErrorKind::Disk, std::to_string(report.refused) + " data sets were not stored");
    } else if (report.failedCommands > 0) {
        outcome.failure.emplace(ErrorKind::Refused, "the program for studies failed for " +
                                                        std::to_string(report.failedCommands) + " of them");
    } else if (report.broken > 0) {
        outcome.failure.emplace(ErrorKind::Refused,
                                std::to_string(report.broken) + " associations were not ended in order");
    }
    return outcome;
}

}  // namespace korvane
