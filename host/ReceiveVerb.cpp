// korvane receive: files from other DICOM programs.
#include "Console.h"
#include "NetworkOptions.h"
#include "OutputLines.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    ReceiveOptions options;
    std::uint64_t keepFree = 64;  // megabytes
    bool local = false;
    bool once = false;
    bool json = false;
};

// A line for each association; faults on standard error.
class TextOutput : public ReceiveObserver {
public:
    explicit TextOutput(const ReceiveOptions& options) : m_Options(options) {}

    void OnListening(std::uint16_t port) override {
        m_Lines.Add("listening on port " + std::to_string(port) + ", files go to " + Visible(m_Options.folder));
    }
    void OnFile(const ReceivedFile& file) override { Tell(OutcomeOf(file)); }
    void OnEnd(const ReceivedAssociation& association) override { Tell(OutcomeOf(association)); }
    void OnCommitment(const ReceivedCommitment& commitment) override { Tell(OutcomeOf(commitment)); }
    bool OnLook(int milliseconds) override { return m_Lines.Write(milliseconds); }
    void Finish() { m_Lines.Finish(); }

protected:
    OutputLines m_Lines;

private:
    void Tell(const Outcome& outcome) {
        for (const std::string& fault : outcome.faults) Complain(fault);
        for (const std::string& line : outcome.lines) m_Lines.Add(Visible(line));
    }

    const ReceiveOptions& m_Options;
};

// An object on each line, as things happen.
class JsonOutput : public TextOutput {
public:
    using TextOutput::TextOutput;
    void OnListening(std::uint16_t port) override { m_Lines.Add(ListeningJson(port)); }
    void OnFile(const ReceivedFile& file) override { m_Lines.Add(ToJson(file)); }
    void OnEnd(const ReceivedAssociation& association) override { m_Lines.Add(ToJson(association)); }
    void OnCommitment(const ReceivedCommitment& commitment) override { m_Lines.Add(ToJson(commitment)); }
    void OnStudy(const ReceivedStudy& study) override { m_Lines.Add(ToJson(study)); }
};

void Run(Arguments& arguments) {
    ReceiveOptions& options = arguments.options;
    ConsoleWatcher watcher;
    options.watcher = &watcher;
    options.keepFree = arguments.keepFree << 20;
    if (arguments.once) options.count = 1;
    if (arguments.local) options.bindAddress = "127.0.0.1";
    TextOutput text(options);
    JsonOutput json(options);
    TextOutput& output = arguments.json ? json : text;
    const ReceiveReport report = Receive(options, &output);
    output.Finish();
    Conclude(OutcomeOf(report));
}

}  // namespace

void AddReceiveVerb(CLI::App& program) {
    constexpr int kLongest = 24 * 3600;
    CLI::App* const verb = program.add_subcommand("receive", "Store what other DICOM programs send (C-STORE, C-ECHO)");
    const auto arguments = std::make_shared<Arguments>();
    ReceiveOptions& options = arguments->options;
    verb->add_option("PORT", options.port, "Port to listen on; 0: a free one, which is told")->required();
    verb->add_option("DIR", options.folder, "Folder for the files; made where it is not there")->required();
    verb->add_option("--aet", options.ownTitle, "AE title of this program: who calls another is rejected (any)")
        ->check(FaultOfTitle);
    verb->add_option("--aec", options.callers, "AE title that may call; may be repeated (all)")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(FaultOfTitle);
    verb->add_flag("--replace", options.replace,
                   "Replace files of the same SOP Instance UID; else other contents get -2, -3 ... behind it");
    CLI::Option* const bind =
        verb->add_option("--bind", options.bindAddress, "Address of this machine to listen on (all)");
    verb->add_flag("--local", arguments->local, "Take connections from this machine only")->excludes(bind);
    verb->add_option("--allow", options.addresses, "Address that may connect (IPv4 or IPv6); may be repeated (all)")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    verb->add_option("--limit", options.limit, "Associations at once; who comes beyond it is rejected for now (64)")
        ->check(CLI::Range(1, 1000));
    verb->add_option("--limit-per-address", options.limitPerAddress, "Of them from one address (as many)")
        ->check(CLI::Range(1, 1000));
    verb->add_option("--keep-free", arguments->keepFree, "Megabytes of the disk that are not written to (64)");
    verb->add_flag("!--no-sync", options.sync, "Answer before a file is on the disk: faster, and lost with the power");
    AddTlsOptions(*verb, options.tls);
    verb->add_option(
            "--commit-to", options.commitTo,
            "TITLE=HOST:PORT where commitment is reported to a title whose association has ended; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    verb->add_option("--commit-retry", options.commitRetry,
                     "Seconds before a report is tried again, then twice as long (10)")
        ->check(CLI::Range(1, 3600));
    CLI::Option* const count =
        verb->add_option("--count", options.count, "End after so many associations")->check(CLI::Range(1, 1000000000));
    verb->add_flag("--once", arguments->once, "End after one association")->excludes(count);
    verb->add_option("--request-timeout", options.requestTimeout,
                     "Seconds that who connects has to ask for an association (30)")
        ->check(CLI::Range(1, kLongest));
    verb->add_option("--timeout", options.timeout, "Seconds that a peer may then be silent (300)")
        ->check(CLI::Range(1, kLongest));
    verb->add_option("--layout", options.layout,
                     "flat, or folders for each patient, study in that, series in that (flat)")
        ->transform(CLI::CheckedTransformer(LayoutWords()));
    verb->add_option("--on-study", options.onStudy,
                     "Program to run for each study once it is quiet; KORVANE_STUDY, _PATIENT, _CALLING, _FOLDER and "
                     "_FILES are in its environment");
    verb->add_option("--quiet-study", options.studyQuiet, "Seconds without a file after which a study is quiet (30)")
        ->check(CLI::Range(1, kLongest));
    verb->add_option("--log", options.log, "File that a line of JSON is added to for each association");
    verb->add_flag("--json", arguments->json, "For programs: an object on each line");
    verb->callback([arguments] { Run(*arguments); });
}
