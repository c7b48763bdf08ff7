// korvane find, get and move: asks another DICOM program what it has, and fetches it.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

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

void RunFind(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.query.level = QueryLevelOf(arguments.level);
    arguments.query.keys = Keys(arguments);
    arguments.query.watcher = &watcher;
    const QueryReport report = Query(arguments.peer, arguments.query);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
}

void RunRetrieve(Arguments& arguments, bool move) {
    ConsoleWatcher watcher;
    RetrieveOptions& options = arguments.retrieve;
    options.level = QueryLevelOf(arguments.level);
    options.keys = Keys(arguments);
    options.watcher = &watcher;
    const RetrieveReport report = move ? Move(arguments.peer, options) : Get(arguments.peer, options);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
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

// For the verbs that ask again what a web service may give another time.
void AddRetryOptions(CLI::App& verb, WebOptions& options) {
    verb.add_option("--retry", options.retries, "Ask a web service so often again that has failed for now (3)")
        ->check(CLI::Range(0, 1000));
    verb.add_option("--retry-wait", options.retryWait, "Seconds before the first of them, then twice as long (1)")
        ->check(CLI::Range(0, 60));
}

void AddFolderOptions(CLI::App& verb, RetrieveOptions& options) {
    verb.add_flag("--replace", options.replace,
                  "Replace files of the same SOP Instance UID; else other contents get -2, -3 ... behind it");
    verb.add_flag("!--no-sync", options.sync, "Do not wait until files are on the disk");
}

}  // namespace

void AddFindVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("find", "Ask a DICOM program what it has (C-FIND, QIDO-RS)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    AddWebOptions(*verb, arguments->peer);
    AddRetryOptions(*verb, arguments->peer.web);
    AddKeyOptions(*verb, *arguments, arguments->query.patientRoot, arguments->query.characterSet);
    verb->get_option("--level")->description("patient, study, series, image or worklist (study)");
    verb->add_option("--limit", arguments->query.limit, "Cancel the query after so many matches");
    verb->callback([arguments] { RunFind(*arguments); });
}

void AddGetVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("get", "Fetch files from a DICOM program (C-GET, WADO-RS)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    AddWebOptions(*verb, arguments->peer);
    AddRetryOptions(*verb, arguments->peer.web);
    verb->add_option("DIR", arguments->retrieve.folder, "Folder for the files; made where it is not there")->required();
    AddKeyOptions(*verb, *arguments, arguments->retrieve.patientRoot, arguments->retrieve.characterSet);
    AddFolderOptions(*verb, arguments->retrieve);
    RetrieveOptions& options = arguments->retrieve;
    CLI::Option* const metadata = verb->add_flag_callback(
        "--metadata", [&options] { options.form = RetrievedForm::Metadata; },
        "Of a web service the metadata alone, UID.json for each instance");
    verb->add_option("--frames", options.frames, "Of a web service these frames alone, from 1 on: 1,3")
        ->delimiter(',')
        ->expected(1)
        ->check(CLI::PositiveNumber)
        ->each([&options](const std::string&) { options.form = RetrievedForm::Frames; })
        ->excludes(metadata);
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
            ->check(FaultOfTitle);
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
