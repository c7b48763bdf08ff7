// korvane receive: files from other DICOM programs.
#include "NetworkOptions.h"
#include "OutputLines.h"
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/core/TextEncoding.h>
#include <Korvane/kit/network/ReceiveJob.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>

using namespace korvane;

namespace {

using Json = nlohmann::ordered_json;

struct Arguments {
    ReceiveOptions options;
    bool once = false;
    bool json = false;
};

std::string CountText(std::size_t stored, std::size_t refused) {
    return std::to_string(stored) + " files stored" + (refused > 0 ? ", " + std::to_string(refused) + " refused" : "");
}

class Output : public ReceiveObserver {
public:
    bool OnLook(int milliseconds) override { return m_Lines.Write(milliseconds); }
    void Finish() { m_Lines.Finish(); }

protected:
    OutputLines m_Lines;
};

/// A line for each association; faults on standard error.
class TextOutput : public Output {
public:
    explicit TextOutput(const ReceiveOptions& options) : m_Options(options) {}

    void OnListening(std::uint16_t port) override {
        m_Lines.Add("listening on port " + std::to_string(port) + ", files go to " + Visible(m_Options.folder));
    }
    void OnFile(const StorageRequest& request, const std::string&, std::uint16_t, const std::string& why) override {
        if (!why.empty()) Warn(request.sopInstance + " from " + request.callingTitle + ": " + why);
    }
    void OnEnd(const Association& association) override {
        const std::string who =
            (association.caller.empty() ? "unnamed" : association.caller) + " (" + association.address + ")";
        if (!association.error.empty()) Warn(who + ": " + association.error);
        m_Lines.Add(Visible(who) + ": " + CountText(association.stored, association.refused));
    }

private:
    const ReceiveOptions& m_Options;
};

/// An object on each line, as things happen: "schema" ("korvane.receive"), "version" (1; it grows when a member changes
/// its meaning or goes) and "event": "listening", "file" or "association".
class JsonOutput : public Output {
public:
    void OnListening(std::uint16_t port) override { Print("listening", {{"port", port}}); }
    void OnFile(const StorageRequest& request, const std::string& path, std::uint16_t status,
                const std::string& why) override {
        Print("file", {{"path", Text(path)},
                       {"sopClass", Text(request.sopClass)},
                       {"sopInstance", Text(request.sopInstance)},
                       {"transferSyntax", Text(request.transferSyntax)},
                       {"calling", Text(request.callingTitle)},
                       {"status", status},
                       {"why", Text(why)}});
    }
    void OnEnd(const Association& association) override {
        Print("association", {{"address", association.address},
                              {"calling", Text(association.caller)},
                              {"released", association.end == DcmService::Event::Released},
                              {"error", Text(association.error)},
                              {"stored", association.stored},
                              {"refused", association.refused}});
    }

private:
    static std::string Text(const std::string& text) { return TextDecoder("ISO_IR 192").ToUtf8(text); }

    void Print(const char* event, const Json& members) {
        Json json = {{"schema", "korvane.receive"}, {"version", 1}, {"event", event}};
        json.update(members);
        m_Lines.Add(json.dump());
    }
};

void Receive(Arguments& arguments) {
    ReceiveOptions& options = arguments.options;
    if (arguments.once) options.count = 1;
    TextOutput text(options);
    JsonOutput json;
    Output& output = arguments.json ? static_cast<Output&>(json) : text;
    const ReceiveReport report = ReceiveFiles(options, output);
    output.Finish();
    if (report.refused > 0) throw HostError(std::to_string(report.refused) + " data sets were not stored");
    if (report.broken > 0) throw HostError(std::to_string(report.broken) + " associations were not ended in order");
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
        ->check(CheckTitle);
    verb->add_option("--aec", options.callers, "AE title that may call; may be repeated (all)")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check(CheckTitle);
    verb->add_flag("--replace", options.replace,
                   "Replace files of the same SOP Instance UID; else other contents get -2, -3 ... behind it");
    verb->add_flag("--local", options.loopbackOnly, "Take connections from this machine only");
    CLI::Option* const count =
        verb->add_option("--count", options.count, "End after so many associations")->check(CLI::Range(1, 1000000000));
    verb->add_flag("--once", arguments->once, "End after one association")->excludes(count);
    verb->add_option("--request-timeout", options.requestTimeout,
                     "Seconds that who connects has to ask for an association (30)")
        ->check(CLI::Range(1, kLongest));
    verb->add_option("--timeout", options.timeout, "Seconds that a peer may then be silent (300)")
        ->check(CLI::Range(1, kLongest));
    verb->add_flag("--json", arguments->json, "For programs: an object on each line");
    verb->callback([arguments] { Receive(*arguments); });
}
