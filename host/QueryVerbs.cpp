// korvane find, get and move: asks another DICOM program what it has, and fetches it.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <memory>

using namespace korvane;

namespace {

constexpr std::size_t kWidest = 40;

struct Arguments {
    Peer peer;
    std::vector<std::string> keys;
    QueryOptions query;
    RetrieveOptions retrieve;
    std::string level = "study";
    bool json = false;
};

std::vector<QueryKey> Keys(const Arguments& arguments) {
    std::vector<QueryKey> keys;
    for (const std::string& text : arguments.keys) keys.push_back(QueryKeyOf(text));
    return keys;
}

// About how many columns of a terminal a UTF-8 text takes.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void PrintTable(const QueryReport& report) {
    std::vector<std::vector<std::string>> rows(1);
    for (const std::string& column : report.columns) rows[0].push_back(column.substr(column.rfind('.') + 1));
    for (const DataSet& match : report.matches) {
        std::vector<std::string>& row = rows.emplace_back();
        for (const std::string& column : report.columns) row.push_back(Visible(match.Text(column)));
    }
    std::vector<std::size_t> widths(report.columns.size());
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], WidthOf(row[i]));
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t width = std::min(widths[i], kWidest);
            line += row[i] + std::string(width > WidthOf(row[i]) ? width - WidthOf(row[i]) : 0, ' ') + "  ";
        }
        std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
}

void RunFind(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.query.level = QueryLevelOf(arguments.level);
    arguments.query.keys = Keys(arguments);
    arguments.query.watcher = &watcher;
    const QueryReport report = Query(arguments.peer, arguments.query);
    if (report.ignoredKeys) Warn("the peer left out a key that it cannot match: there may be too many answers");
    if (report.isCut) Warn("there may be more: these are the first " + std::to_string(report.matches.size()));
    if (arguments.json) {
        std::cout << ToJson(report) << '\n';
    } else {
        PrintTable(report);
    }
}

void Tell(const RetrieveReport& report, const std::string& peer, const RetrieveOptions& options, bool json) {
    if (json) {
        std::cout << ToJson(report) << '\n';
    } else if (options.destination.empty()) {
        std::cout << report.stored << " files from " << Visible(peer) << " in " << Visible(options.folder) << '\n';
    } else {
        std::cout << report.completed << " instances sent by " << Visible(peer) << " to "
                  << Visible(options.destination) << '\n';
    }
    std::size_t notStored = 0;
    for (const ReceivedFile& file : report.files) {
        const std::string& said = file.why.empty() ? file.remark : file.why;
        if (!said.empty()) Complain(file.sopInstance + ": " + said);
        if (!file.why.empty()) ++notStored;
    }
    for (const auto& failure : report.failures) Complain(failure.what + ": " + failure.why);
    const std::size_t failed = std::max(report.failed, notStored);
    if (failed > 0) throw Error(ErrorKind::Refused, std::to_string(failed) + " instances did not come");
    if (!report.failures.empty()) throw Error(ErrorKind::Refused, "not all that was asked for came");
}

void RunRetrieve(Arguments& arguments, bool move) {
    ConsoleWatcher watcher;
    RetrieveOptions& options = arguments.retrieve;
    options.level = QueryLevelOf(arguments.level);
    options.keys = Keys(arguments);
    options.watcher = &watcher;
    const RetrieveReport report = move ? Move(arguments.peer, options) : Get(arguments.peer, options);
    Tell(report, arguments.peer.Name(), options, arguments.json);
}

// `characterSet` and `patientRoot` are those of the job's options.
void AddKeyOptions(CLI::App& verb, Arguments& arguments, bool& patientRoot, std::string& characterSet) {
    verb.add_option("KEY", arguments.keys,
                    "KEY=VALUE or KEY, by keyword or tag: \"PatientName=DOE*\", StudyDate=20260101-");
    verb.add_option("--level", arguments.level, "patient, study, series or image (study)");
    verb.add_flag("--patient-root", patientRoot, "Use the patient root model (study root)");
    verb.add_option("--charset", characterSet, "Character set of values that are not ASCII (ISO_IR 192)");
    verb.add_flag("--json", arguments.json, "For programs");
}

void AddFolderOptions(CLI::App& verb, RetrieveOptions& options) {
    verb.add_flag("--replace", options.replace,
                  "Replace files of the same SOP Instance UID; else other contents get -2, -3 ... behind it");
    verb.add_flag("!--no-sync", options.sync, "Do not wait until files are on the disk");
}

}  // namespace

void AddFindVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("find", "Ask a DICOM program what it has (C-FIND)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    AddKeyOptions(*verb, *arguments, arguments->query.patientRoot, arguments->query.characterSet);
    verb->get_option("--level")->description("patient, study, series, image or worklist (study)");
    verb->add_option("--limit", arguments->query.limit, "Cancel the query after so many matches");
    verb->callback([arguments] { RunFind(*arguments); });
}

void AddGetVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("get", "Fetch files from a DICOM program (C-GET)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_option("DIR", arguments->retrieve.folder, "Folder for the files; made where it is not there")->required();
    AddKeyOptions(*verb, *arguments, arguments->retrieve.patientRoot, arguments->retrieve.characterSet);
    AddFolderOptions(*verb, arguments->retrieve);
    verb->callback([arguments] { RunRetrieve(*arguments, false); });
}

void AddMoveVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("move", "Have a DICOM program send, here or elsewhere (C-MOVE)");
    const auto arguments = std::make_shared<Arguments>();
    RetrieveOptions& options = arguments->retrieve;
    AddPeerOptions(*verb, arguments->peer);
    AddKeyOptions(*verb, *arguments, options.patientRoot, options.characterSet);
    CLI::Option* const to =
        verb->add_option("--to", options.destination, "AE title of another program that the peer shall send to")
            ->check(CheckTitle);
    CLI::Option* const folder = verb->add_option("--dir", options.folder, "Folder for what is sent here")->excludes(to);
    verb->add_option("--port", options.port, "Port at which the peer reaches this program")
        ->check(CLI::Range(1, 65535))
        ->excludes(to)
        ->needs(folder);
    verb->add_flag("--tls-in", options.encrypted,
                   "What comes to that port is encrypted, with the certificates of --tls-cert ...")
        ->needs(folder);
    AddFolderOptions(*verb, options);
    verb->callback([arguments] { RunRetrieve(*arguments, true); });
}
